// The driver's program as people run it: as an ordinary user.
#include <sys/stat.h>

#include <filesystem>

#include "EventDevice.h"
#include "PenDriverProcess.h"
#include "PenTap.h"
#include "TemporaryFolder.h"
#include "Testbed.h"

namespace {

using pentest::Record;
using pentest::Records;

constexpr uid_t kSomebody = 65533;

class DriverProgram : public DeviceTest {
  protected:
    void SetUp() override {
        if (geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
        DeviceTest::SetUp();
    }

    // What stands for the system is everybody's, as the system is.
    void LetEverybodyIn() const {
        for (const std::filesystem::path& top :
             {std::filesystem::path(bed->Root()), files.Path()}) {
            LetIn(top);
            for (const auto& entry : std::filesystem::recursive_directory_iterator(top)) {
                LetIn(entry.path());
            }
        }
    }
    // The node that stands for the device's.
    void Permit(int number, mode_t mode) const {
        const std::string node = bed->Root() + "/dev/input/event" + std::to_string(number);
        ASSERT_EQ(chmod(node.c_str(), mode), 0);
    }
    void Write(int number, std::uint16_t type, std::uint16_t code, std::int32_t value) const {
        input_event event{};
        event.type = type;
        event.code = code;
        event.value = value;
        const int node = bed->WriterOf("/dev/input/event" + std::to_string(number));
        ASSERT_EQ(write(node, &event, sizeof event), static_cast<ssize_t>(sizeof event));
    }

    TemporaryFolder files;

  private:
    static void LetIn(const std::filesystem::path& place) {
        if (std::filesystem::is_symlink(place)) return;
        std::filesystem::permissions(place, std::filesystem::perms(0777));
    }
};

TEST_F(DriverProgram, WithoutAccess_SaysWhatIsMissing_AndReadsWhenItIsGranted) {
    const std::string folder = AddEventDevice(*bed, files, 5);
    LetEverybodyIn();
    Permit(5, 0600);
    Driver driver({"--screen", "101x51"}, kSomebody);
    EXPECT_EQ(driver.Line(),
              "StylusPadDriver: /dev/input/event5 (Test Tablet) cannot be read: Permission denied; "
              "only root may read it\n");
    EXPECT_EQ(driver.Line(),
              "StylusPadDriver: there is no tablet that can be read; waiting for one\n");
    // As udev does it: first the rights, and then the notice.
    Permit(5, 0666);
    bed->Tell(folder, "change");
    EXPECT_EQ(driver.Line(), "StylusPadDriver: /dev/input/event5 (Test Tablet) is read\n");
    const PenTap tap(driver.Pid());
    Write(5, EV_ABS, ABS_X, 10);
    Write(5, EV_KEY, BTN_TOOL_PEN, 1);
    Write(5, EV_SYN, SYN_REPORT, 0);
    EXPECT_EQ(tap.Read(1), (Records{Record(penEvents::kProximity, 10, 0)}));
    kill(driver.Pid(), SIGTERM);
    EXPECT_EQ(driver.Wait(), 0);
}

}  // namespace
