// Pen data while the main thread waits for an installer: a recorded stroke is played by the real
// driver to a real tap.
#include <fcntl.h>
#include <gmock/gmock.h>

#include "support/Applications.h"
#include "support/Files.h"

namespace {

constexpr char kDriver[] = "/tablet/StylusPadDriver";

class PenDataMeanwhile : public ApplicationsTest {
  protected:
    PenDataMeanwhile()
        : ApplicationsTest({"--perms", "0755", "--dir", "/tablet", "--ro-bind", E2E_DRIVER, kDriver,
                            "--ro-bind", std::string(E2E_FIXTURES) + "/pen", "/tablet/pen"}) {}

    // Plays the recording when somebody taps it.
    void StartDriver(const std::string& recording) {
        Program driver;
        driver.path = kDriver;
        driver.arguments = {
            kDriver,   "--screen", "1920x1080", "--replay", "/tablet/pen/" + recording,
            "--speed", "4"};
        const Descriptor nothing(open("/dev/null", O_RDWR | O_CLOEXEC));
        const Descriptor errors(dup(2));
        sandbox.Start(driver, nothing.Get(), nothing.Get(), errors.Get());
    }
};

TEST_F(PenDataMeanwhile, Flows) {
    InstallTool(sandbox, kAirInstaller, "until [ -e /tmp/go ]; do /bin/sleep 0.05; done\n");
    sandbox.MakeUsersFile("/Users/Shared/Notes.air", "");
    MakeApplication(sandbox, "/Applications/Notes.app", {"com.example.notes"});
    client.Send("installAirApp Notes com.example.notes /Users/Shared/Notes.air|");
    WaitUntil("the installer runs", [&] { return !CallsOf(sandbox, kAirInstallerName).empty(); });

    StartDriver("slow-pressure-ramp.evemu");
    Client pen = service.ConnectToPressure();
    pen.Send("startTablet|");
    WaitUntil("the driver is tapped",
              [&] { return pen.Ask("listenTablet x StylusPadDriver") == "Success "; });
    EXPECT_EQ(pen.Receive(), "PenData.PROXIMITY_IN");
    EXPECT_EQ(pen.Receive(), "PenData.USE_TIP");
    // Pressures and positions have no frames of their own.
    pen.ReceiveExactBytes(2000);
    client.ExpectSilence();
    WriteFile(sandbox.Outside("/tmp/go"), "");
    EXPECT_EQ(client.Receive(), "Success AirAppInstallStarted=Notes");
}

}  // namespace
