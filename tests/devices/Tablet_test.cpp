#include <fcntl.h>
#include <linux/input.h>
#include <sys/stat.h>

#include "EventDevice.h"
#include "PenTap.h"
#include "TemporaryFolder.h"
#include "Testbed.h"
#include "driver/List.h"
#include "driver/Tablets.h"
#include "driver/Timer.h"

namespace {

using driver::Tablets;
using pentest::Record;
using pentest::Records;

constexpr driver::Screen kScreen = {101, 51};

class TabletDriver : public DeviceTest {
  protected:
    // An event device; its folder in /sys.
    std::string Add(int number, const Model& model = {}) {
        return AddEventDevice(*bed, files, number, model);
    }

    // What the device says. The last report's end is said, too.
    void Say(int number, const std::vector<driver::Event>& events) {
        std::string bytes;
        const auto append = [&bytes](const driver::Event& event) {
            input_event raw{};
            raw.type = event.type;
            raw.code = event.code;
            raw.value = event.value;
            bytes.append(reinterpret_cast<const char*>(&raw), sizeof raw);
        };
        for (const driver::Event& event : events) {
            append(event);
        }
        append({0, EV_SYN, SYN_REPORT, 0});
        const int node = bed->WriterOf("/dev/input/event" + std::to_string(number));
        ASSERT_EQ(write(node, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }

    // What has been posted and not been taken.
    Records Taken() {
        Records records;
        for (std::string packet = tap->ReadPacket(0); !packet.empty();
             packet = tap->ReadPacket(0)) {
            penEvents::Record record{};
            packet.copy(reinterpret_cast<char*>(&record), sizeof record);
            records.push_back(record);
        }
        return records;
    }
    // Lets the driver run until something has been posted, and not a turn longer.
    Records RunOneTurn() {
        const auto deadline = driver::Timer::Clock::now() + std::chrono::seconds(10);
        Records records;
        driver::Timer next(loop, [&] {
            records = Taken();
            if (!records.empty() || driver::Timer::Clock::now() > deadline) {
                loop.Stop();
            } else {
                next.CallAt(driver::Timer::Clock::now());
            }
        });
        next.CallAt(driver::Timer::Clock::now());
        loop.Run();
        return records;
    }
    // Lets the driver run until COUNT more events have been posted.
    Records Run(std::size_t count) {
        Records records;
        RunUntil([&] {
            const Records taken = Taken();
            records.insert(records.end(), taken.begin(), taken.end());
            return records.size() >= count;
        });
        return records;
    }
    bool RunUntil(const std::function<bool()>& condition) {
        const auto deadline = driver::Timer::Clock::now() + std::chrono::seconds(10);
        bool held = false;
        driver::Timer timer(loop, [&] {
            held = condition();
            if (held || driver::Timer::Clock::now() > deadline) {
                loop.Stop();
            } else {
                timer.CallAt(driver::Timer::Clock::now() + std::chrono::milliseconds(1));
            }
        });
        timer.CallAt(driver::Timer::Clock::now());
        loop.Run();
        return held;
    }

    void Start() {
        tap = std::make_unique<PenTap>(getpid());
        ASSERT_TRUE(RunUntil([&] { return server.CountOfTaps() == 1; }));
        tablets = std::make_unique<Tablets>(loop, server, kScreen);
    }

    TemporaryFolder files;
    driver::Loop loop;
    driver::TapServer server{loop};
    std::unique_ptr<PenTap> tap;
    std::unique_ptr<Tablets> tablets;
};

constexpr driver::Event Key(std::uint16_t code, bool isDown) {
    return {0, EV_KEY, code, isDown ? 1 : 0};
}
constexpr driver::Event Axis(std::uint16_t code, std::int32_t value) {
    return {0, EV_ABS, code, value};
}

TEST_F(TabletDriver, List_ShowsTheTabletsAndWhatTheyCan) {
    EXPECT_EQ(driver::ListOfTablets(), "There is no tablet.\n");
    Model other;
    other.name = "Another";
    other.vendor = 0x1234;
    Add(10, other);
    Add(5);
    Model mouse;
    mouse.hasPen = false;
    Add(6, mouse);
    EXPECT_EQ(driver::ListOfTablets(),
              "/dev/input/event5  Test Tablet\n"
              "    model f7e5:7102, tools: pen, eraser\n"
              "    x 0 to 100, y 0 to 50, pressure 0 to 1000\n"
              "/dev/input/event10  Another\n"
              "    model 1234:7102, tools: pen, eraser\n"
              "    x 0 to 100, y 0 to 50, pressure 0 to 1000\n");
}

TEST_F(TabletDriver, TabletThatCannotBeRead_IsListedWithTheReason) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
    const driver::FoundTablet tablet{"folder", files.Write("node", "").string(), "Test Tablet"};
    ASSERT_EQ(chmod(files.Path().c_str(), 0755), 0);
    const auto describe = [&tablet](mode_t mode) {
        EXPECT_EQ(chown(tablet.node.c_str(), 0, 1), 0);
        EXPECT_EQ(chmod(tablet.node.c_str(), mode), 0);
        EXPECT_EQ(seteuid(65534), 0);
        const std::string text = driver::Describe(tablet);
        EXPECT_EQ(seteuid(0), 0);
        return text;
    };
    EXPECT_EQ(describe(0660), tablet.node +
                                  "  Test Tablet\n    cannot be read: Permission denied; whoever "
                                  "runs the driver has to be in the group \"daemon\" (sudo usermod "
                                  "-aG daemon NAME) and to log in again\n");
    EXPECT_EQ(describe(0600), tablet.node +
                                  "  Test Tablet\n    cannot be read: Permission denied; only root "
                                  "may read it\n");
}

TEST_F(TabletDriver, TabletPluggedBeforeTheStart_IsRead) {
    Add(5);
    Start();
    Say(5, {Axis(ABS_X, 10), Axis(ABS_Y, 20), Key(BTN_TOOL_PEN, true)});
    EXPECT_EQ(Run(1), (Records{Record(24, 10, 20)}));
    Say(5, {Axis(ABS_PRESSURE, 500), Key(BTN_TOUCH, true)});
    Say(5, {Axis(ABS_X, 11)});
    EXPECT_EQ(Run(3),
              (Records{Record(1, 10, 20, 0.5), Record(6, 10, 20, 0.5), Record(6, 11, 20, 0.5)}));
}

// Where the pen is already, the device does not say again.
TEST_F(TabletDriver, PenThatIsThereAtTheStart_IsNoticed) {
    Model model;
    model.keysThatAreDown = {BTN_TOOL_PEN};
    model.x = 42;
    Add(5, model);
    Start();
    EXPECT_EQ(Run(1), (Records{Record(24, 42, 0)}));
}

TEST_F(TabletDriver, TabletPluggedLater_IsRead_AndUnplugged_LetsItsPenGo) {
    Start();
    const std::string folder = Add(5);
    bed->Tell(folder, "add");
    ASSERT_TRUE(RunUntil([&] { return tablets->Count() == 1; }));
    Say(5, {Axis(ABS_X, 10), Key(BTN_TOOL_PEN, true)});
    Say(5, {Key(BTN_TOUCH, true), Axis(ABS_PRESSURE, 1000)});
    EXPECT_EQ(Run(3), (Records{Record(24, 10, 0), Record(1, 10, 0, 1), Record(6, 10, 0, 1)}));
    bed->Tell(folder, "remove");
    EXPECT_EQ(Run(3),
              (Records{Record(2, 10, 0, 0), Record(23, 10, 0, 0), Record(24, 10, 0, 0, 1, 0)}));
    EXPECT_EQ(tablets->Count(), 0u);
}

TEST_F(TabletDriver, DeviceThatIsNoTablet_IsLeftAlone) {
    Model mouse;
    mouse.hasPen = false;
    Add(5, mouse);
    Start();
    const std::string folder = Add(6, mouse);
    bed->Tell(folder, "add");
    // By then it has been looked at.
    bed->Tell(Add(7), "add");
    ASSERT_TRUE(RunUntil([&] { return tablets->Count() != 0; }));
    EXPECT_EQ(tablets->Count(), 1u);
}

TEST_F(TabletDriver, TwoOfTheSameModel_DrawEachForItself) {
    Add(5);
    Add(6);
    Start();
    EXPECT_EQ(tablets->Count(), 2u);
    Say(5, {Axis(ABS_X, 10), Key(BTN_TOOL_PEN, true)});
    EXPECT_EQ(Run(1), (Records{Record(24, 10, 0)}));
    Say(6, {Axis(ABS_X, 90), Key(BTN_TOOL_RUBBER, true)});
    EXPECT_EQ(Run(1), (Records{Record(24, 90, 0, 0, 3)}));
    Say(5, {Axis(ABS_Y, 5)});
    EXPECT_EQ(Run(1), (Records{Record(23, 10, 5)}));
}

TEST_F(TabletDriver, TabletOfAnotherMaker_IsReadLikeAnyOther) {
    Model foreign;
    foreign.name = "Another";
    foreign.vendor = 0x1234;
    foreign.product = 0x0001;
    Add(5, foreign);
    Start();
    Say(5, {Axis(ABS_X, 10), Axis(ABS_Y, 20), Key(BTN_TOOL_PEN, true)});
    Say(5, {Axis(ABS_PRESSURE, 500), Key(BTN_TOUCH, true)});
    Say(5, {Axis(ABS_PRESSURE, 0), Key(BTN_TOUCH, false), Key(BTN_TOOL_PEN, false)});
    EXPECT_EQ(Run(6),
              (Records{Record(24, 10, 20), Record(1, 10, 20, 0.5), Record(6, 10, 20, 0.5),
                       Record(2, 10, 20), Record(23, 10, 20), Record(24, 10, 20, 0, 1, 0)}));
}

// A device that never stops must not keep the driver from its taps, nor from its end.
TEST_F(TabletDriver, FloodOfEvents_IsReadInTurnsWithEverythingElse_AndToItsEnd) {
    Add(5);
    Start();
    Say(5, {Key(BTN_TOOL_PEN, true)});
    ASSERT_EQ(Run(1).size(), 1u);
    // As many as fit into the device.
    constexpr std::size_t kReports = 80;
    for (std::size_t report = 0; report < kReports; ++report) {
        Say(5, {Axis(ABS_X, report % 2 == 0 ? 10 : 20)});
    }
    Records got = RunOneTurn();
    EXPECT_GT(got.size(), 0u);
    EXPECT_LT(got.size(), kReports);
    const Records rest = Run(kReports - got.size());
    got.insert(got.end(), rest.begin(), rest.end());
    ASSERT_EQ(got.size(), kReports);
    for (std::size_t report = 0; report < kReports; ++report) {
        ASSERT_EQ(got[report], Record(23, report % 2 == 0 ? 10 : 20, 0)) << report;
    }
}

TEST_F(TabletDriver, TabletThatGoesInTheMiddleOfAFlood_IsForgotten) {
    Add(5);
    Start();
    Say(5, {Key(BTN_TOOL_PEN, true)});
    for (int report = 0; report < 80; ++report) {
        Say(5, {Axis(ABS_X, report % 2 == 0 ? 10 : 20)});
    }
    ASSERT_FALSE(RunOneTurn().empty());
    // It has more to say, and was going to be read.
    tablets.reset();
    const Records got = Run(1);
    ASSERT_FALSE(got.empty());
    EXPECT_EQ(got.back().type, penEvents::kProximity);
    EXPECT_EQ(got.back().enterProximity, 0);
}

TEST_F(TabletDriver, SeveralNoticesOfOneTablet_OpenItOnce) {
    Start();
    const std::string folder = Add(5);
    for (const char* const action : {"add", "change", "bind", "add"}) {
        bed->Tell(folder, action);
    }
    ASSERT_TRUE(RunUntil([&] { return tablets->Count() == 1; }));
    Say(5, {Key(BTN_TOOL_PEN, true)});
    EXPECT_EQ(Run(1).size(), 1u);
    EXPECT_EQ(tablets->Count(), 1u);
}

// The kernel had to drop something; what is then asked for says that no key is down.
TEST_F(TabletDriver, EventsThatWereDropped_AreCaughtUpWith) {
    Add(5);
    Start();
    Say(5, {Axis(ABS_X, 10), Key(BTN_TOOL_PEN, true), Key(BTN_TOUCH, true)});
    EXPECT_EQ(Run(2).size(), 2u);
    Say(5, {{0, EV_SYN, SYN_DROPPED, 0}, Axis(ABS_X, 77)});
    EXPECT_EQ(Run(2), (Records{Record(2, 0, 0), Record(24, 0, 0, 0, 1, 0)}));
    Say(5, {Axis(ABS_X, 20), Key(BTN_TOOL_PEN, true)});
    EXPECT_EQ(Run(1), (Records{Record(24, 20, 0)}));
}

TEST_F(TabletDriver, NodeThatDoesNotAnswer_IsLeftAlone) {
    bed->AddRecord(
        "P: /devices/usb/input/input5/event5\nN: input/event5\nE: DEVNAME=/dev/input/event5\n"
        "E: SUBSYSTEM=input\nA: dev=13:69\nL: device=../../input5\n\n"
        "P: /devices/usb/input/input5\nE: SUBSYSTEM=input\nA: name=Mute\\n\n"
        "A: capabilities/key=c03 0 0 0 0 0\\n\nA: capabilities/abs=1000003\\n\n");
    Start();
    EXPECT_EQ(tablets->Count(), 0u);
}

}  // namespace
