// Applications as a person handles them: the command-line client and the service together, with
// bundles made by the test and installers that are stand-ins.
#include <gmock/gmock.h>

#include "TesselctlRunning.h"
#include "support/Applications.h"

namespace {

using testing::HasSubstr;

constexpr char kBundle[] = "/Applications/Draw.app";
constexpr char kId[] = "com.example.draw";
constexpr char kAirId[] = "clock.0123456789ABCDEF0123456789ABCDEF01234567.1";

class TesselctlApplications : public testing::Test {
  protected:
    TesselctlApplications() {
        sandbox.GiveToUser("/Applications");
        service.WaitUntilListening();
    }

    // Everything that a command says, behind its exit status.
    std::string Said(std::vector<std::string> words) {
        words.insert(words.begin(), kClientFile);
        const ProgramRun run = RunProgram(sandbox, words);
        return std::to_string(run.status) + ": " + run.output + run.errors;
    }
    bool Exists(const std::string& path) const {
        return std::filesystem::exists(sandbox.Outside(path));
    }
    // A script that plants the bundle of this identifier.
    static std::string Planting(const std::string& bundle, const std::string& id) {
        return "mkdir -p '" + bundle + "/Contents/MacOS'\n" + "cat >'" + bundle +
               "/Contents/Info.plist' <<END\n"
               "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
               "<key>CFBundleIdentifier</key><string>" +
               id +
               "</string><key>CFBundleExecutable</key><string>Program</string></dict></plist>\n"
               "END\n";
    }

    Sandbox sandbox;
    Service service{sandbox};
};

TEST_F(TesselctlApplications, AnApplication_IsStartedAskedForAndStopped) {
    EXPECT_EQ(Said({"is-installed", kId}), "1: com.example.draw is not installed\n");
    EXPECT_EQ(Said({"start", kId}), "1: tesselctl: com.example.draw is not installed\n");
    MakeApplication(sandbox, kBundle, {kId});
    EXPECT_EQ(Said({"is-installed", kId}), "0: com.example.draw is installed\n");
    EXPECT_EQ(Said({"is-running", kId}), "1: com.example.draw is not running\n");
    EXPECT_EQ(Said({"stop", kId}), "0: com.example.draw was not running\n");
    EXPECT_EQ(Said({"start", kId}), "0: com.example.draw is started\n");
    WaitUntil("it runs", [&] { return StartsOf(sandbox, "Draw").size() == 1; });
    EXPECT_EQ(Said({"is-running", kId}), "0: com.example.draw is running\n");
    EXPECT_EQ(Said({"stop", kId}), "0: com.example.draw is stopped\n");
    EXPECT_EQ(Said({"is-running", kId}), "1: com.example.draw is not running\n");
    EXPECT_FALSE(IsRunning(sandbox, StartsOf(sandbox, "Draw").at(0)));
}

TEST_F(TesselctlApplications, OneThatDoesNotListen_IsStoppedByForce) {
    MakeApplication(sandbox, kBundle, {kId, kIgnoresQuit});
    EXPECT_EQ(Said({"start", kId}), "0: com.example.draw is started\n");
    WaitUntil("it runs", [&] { return StartsOf(sandbox, "Draw").size() == 1; });
    EXPECT_EQ(Said({"stop", kId}), "0: com.example.draw is stopped\n");
    EXPECT_EQ(Said({"is-running", kId}), "1: com.example.draw is not running\n");
}

TEST_F(TesselctlApplications, ARemovedApplication_IsGone) {
    MakeApplication(sandbox, kBundle, {kId});
    EXPECT_EQ(Said({"remove", kId}), "0: com.example.draw is removed\n");
    EXPECT_FALSE(Exists(kBundle));
    EXPECT_EQ(Said({"remove", kId}), "1: tesselctl: com.example.draw is not installed\n");
}

TEST_F(TesselctlApplications, APackage_IsInstalledAndLookedFor) {
    sandbox.MakeUsersFile("/Users/anna/My Draw.pkg", "");
    InstallTool(sandbox, "/usr/sbin/installer", Planting(kBundle, kId));
    EXPECT_EQ(Said({"install", "/Users/anna/My Draw.pkg", kId}),
              "0: com.example.draw is installed\n");
    EXPECT_EQ(CallsOf(sandbox, "installer"), "-pkg|/Users/anna/My Draw.pkg|-target|LocalSystem|\n");
    EXPECT_EQ(Said({"upgrade", "/Users/anna/My Draw.pkg", kId}),
              "0: com.example.draw was there before, and the service says that the upgrade was "
              "started; which of the two versions is there now it cannot tell\n");
    EXPECT_EQ(Said({"install", "/Users/anna/My Draw.pkg"}),
              "0: the service says that the installation of My Draw.pkg was started; whether it is "
              "there shows only with its APP-ID\n");
}

// What the service says of an installation with administrator rights need not be true.
TEST_F(TesselctlApplications,
       AnInstallationWithAdministratorRights_IsToldAsItWentAndNotAsItIsSaid) {
    sandbox.MakeUsersFile("/Users/anna/Draw.pkg", "");
    InstallTool(sandbox, "/usr/sbin/installer",
                "[ -n \"$ELEVATED\" ] || { echo 'Must be run as root'; exit 1; }\n" +
                    Planting(kBundle, kId));
    InstallTool(sandbox, kPkexec, "exit 126\n");
    EXPECT_THAT(Said({"install", "/Users/anna/Draw.pkg", kId}),
                HasSubstr("1: tesselctl: com.example.draw was not installed"));
    EXPECT_THAT(Said({"install", "/Users/anna/Draw.pkg"}),
                HasSubstr("0: the service says that the installation of Draw.pkg was started; "));
    InstallTool(sandbox, kPkexec, kAgrees);
    EXPECT_EQ(Said({"install", "/Users/anna/Draw.pkg", kId}), "0: com.example.draw is installed\n");
}

TEST_F(TesselctlApplications, AnAirApplication_IsInstalledStartedAndRemoved) {
    const std::string id = kAirId;
    sandbox.MakeUsersFile("/Users/anna/clock.air", "");
    sandbox.MakeUsersFolder("/Applications/Tessel Dock/Apps");
    InstallTool(sandbox, kAirInstaller, Planting("/Applications/Tessel Dock/Apps/Clock.app", id));
    EXPECT_EQ(Said({"install", "--name", "Clock", "/Users/anna/clock.air", id}),
              "0: " + id + " is installed\n");
    EXPECT_THAT(CallsOf(sandbox, kAirInstallerName), HasSubstr("|/Users/anna/clock.air|"));
    EXPECT_EQ(Said({"is-installed", id}), "0: " + id + " is installed\n");
    EXPECT_EQ(Said({"remove", id}), "0: " + id + " is removed\n");
    EXPECT_FALSE(Exists("/Applications/Tessel Dock/Apps/Clock.app"));
}

TEST_F(TesselctlApplications, ControlC_EndsTheWaitingAndNotTheInstallation) {
    sandbox.MakeUsersFile("/Users/anna/Draw.pkg", "");
    InstallTool(sandbox, "/usr/sbin/installer",
                "until [ -e /tmp/go ]; do /bin/sleep 0.05; done\n" + Planting(kBundle, kId));
    RunningClient client(sandbox, {"install", "/Users/anna/Draw.pkg"});
    WaitUntil("the installer runs", [&] { return !CallsOf(sandbox, "installer").empty(); });
    client.Signal(SIGINT);
    const ProgramRun run = client.WaitForEnd();
    EXPECT_EQ(run.status, 128 + SIGINT);
    EXPECT_THAT(run.errors, HasSubstr("the service goes on with it"));
    EXPECT_FALSE(Exists(kBundle));
    WriteFile(sandbox.Outside("/tmp/go"), "");
    WaitUntil("it is installed", [&] { return Exists(kBundle); });
}

}  // namespace
