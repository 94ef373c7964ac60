// A replay within the test's own process, whose taps read when the test lets them.
#include "driver/Replay.h"

#include <linux/input-event-codes.h>

#include <cmath>
#include <optional>

#include "PenTap.h"
#include "TemporaryFolder.h"

namespace {

using driver::Replay;
using pentest::Record;
using pentest::Records;
using std::chrono::milliseconds;

// A unit of the recorded tablet's is a pixel.
constexpr driver::Screen kScreen = {44705, 27941};

std::string Line(const std::string& time, int type, int code, int value) {
    char text[80];
    std::snprintf(text, sizeof text, "E: %s %04x %04x %04d\n", time.c_str(),
                  static_cast<unsigned>(type), static_cast<unsigned>(code), value);
    return text;
}
std::string EndOfReport(const std::string& time) {
    return Line(time, EV_SYN, SYN_REPORT, 0);
}
std::string PenComes(const std::string& time) {
    return Line(time, EV_KEY, BTN_TOOL_PEN, 1) + EndOfReport(time);
}
std::string PenIsAt(const std::string& time, int x) {
    return Line(time, EV_ABS, ABS_X, x) + EndOfReport(time);
}

class PenReplay : public ::testing::Test {
  protected:
    // EVENTS behind the description of the tablet that the strokes were made with.
    driver::Recording RecordingOf(const std::string& events) {
        std::ifstream stroke(pentest::RecordingOf("pen-eraser-pen"));
        std::string text;
        std::string line;
        while (std::getline(stroke, line) && line.compare(0, 2, "E:") != 0) {
            text += line + "\n";
        }
        return driver::Recording(folder.Write("stroke.evemu", text + events).string());
    }
    // For as long as that, or until the replay ends the loop. Whether it did.
    bool RunFor(milliseconds time) {
        bool isOver = true;
        driver::Timer timer(loop, [&] {
            isOver = false;
            loop.Stop();
        });
        timer.CallAt(driver::Timer::Clock::now() + time);
        loop.Run();
        return isOver;
    }
    static Records Taken(const PenTap& tap) {
        Records records;
        for (std::string packet = tap.ReadPacket(0); !packet.empty(); packet = tap.ReadPacket(0)) {
            penEvents::Record record{};
            packet.copy(reinterpret_cast<char*>(&record), sizeof record);
            records.push_back(record);
        }
        return records;
    }
    // How many events the system keeps for a tap that does not read.
    std::size_t EventsThatTheSystemKeeps() {
        const PenTap tap(getpid());
        RunFor(milliseconds(10));
        EXPECT_EQ(server.CountOfTaps(), 1u);
        std::size_t count = 0;
        for (; server.IsDone(); ++count) {
            server.Post(Record(6, 1, 1));
        }
        server.CutOffTheSlow();
        return count - 1;
    }

    TemporaryFolder folder;
    driver::Loop loop;
    driver::TapServer server{loop};
};

TEST_F(PenReplay, TimesBeyondAllBounds_AreNeverReached) {
    driver::Recording recording =
        RecordingOf(PenComes("0.000000") + PenIsAt("1099511627776.000000", 7));
    const PenTap tap(getpid());
    const Replay replay(loop, server, recording, kScreen, 1e-300, 1);
    EXPECT_FALSE(RunFor(Replay::kGrace + milliseconds(200)));
    EXPECT_EQ(Taken(tap), (Records{Record(penEvents::kProximity, 0, 0)}));
}

TEST_F(PenReplay, TimesThatGoBackBeyondAllBounds_AreNow) {
    driver::Recording recording =
        RecordingOf(PenComes("1099511627776.000000") + PenIsAt("0.000000", 7));
    const PenTap tap(getpid());
    const Replay replay(loop, server, recording, kScreen, 1e-300, 1);
    EXPECT_TRUE(RunFor(Replay::kGrace + std::chrono::seconds(10)));
    EXPECT_EQ(Taken(tap),
              (Records{Record(penEvents::kProximity, 0, 0), Record(penEvents::kPointer, 7, 0),
                       Record(penEvents::kProximity, 7, 0, 0, penEvents::kPen, 0)}));
}

// The service taps first, and its client asks for what comes when it knows of the tap.
TEST_F(PenReplay, BeginsAMomentAfterTheLastTapHasCome) {
    driver::Recording recording = RecordingOf(PenComes("0.000000"));
    const PenTap tap(getpid());
    const Replay replay(loop, server, recording, kScreen, std::nullopt, 1);
    EXPECT_FALSE(RunFor(Replay::kGrace / 2));
    EXPECT_EQ(server.CountOfTaps(), 1u);
    EXPECT_TRUE(Taken(tap).empty());
    EXPECT_TRUE(RunFor(std::chrono::seconds(10)));
    EXPECT_EQ(Taken(tap).size(), 2u);
}

// It pauses after every 256 events that it reads, to let others have their turn.
TEST_F(PenReplay, TapThatFallsBehindWhereTheReplayPauses_IsWaitedFor) {
    constexpr std::size_t kEventsAtOnce = 256;
    // Each of the reports, which are two of its events, is one that is posted: this is where in the
    // recording the first one comes that the system does not take.
    const std::size_t last = 2 * (EventsThatTheSystemKeeps() + 1);
    std::string events;
    for (std::size_t count = last % kEventsAtOnce; count % kEventsAtOnce != 0; ++count) {
        events += Line("0.000000", EV_MSC, MSC_SERIAL, 0);
    }
    events += PenComes("0.000000");
    const int reports = static_cast<int>(last / 2) + 200;
    for (int report = 1; report < reports; ++report) {
        events += PenIsAt("0.000000", report);
    }
    driver::Recording recording = RecordingOf(events);
    const PenTap tap(getpid());
    const Replay replay(loop, server, recording, kScreen, std::nullopt, 1);
    EXPECT_FALSE(RunFor(Replay::kGrace + milliseconds(100)));
    EXPECT_EQ(server.CountOfTaps(), 1u);
    EXPECT_FALSE(server.IsDone());
    Records got = Taken(tap);
    EXPECT_EQ(got.size(), last / 2 - 1);
    bool isOver = false;
    for (int turn = 0; turn < 5000 && !isOver; ++turn) {
        isOver = RunFor(milliseconds(1));
        const Records more = Taken(tap);
        got.insert(got.end(), more.begin(), more.end());
    }
    EXPECT_TRUE(isOver);
    ASSERT_EQ(got.size(), static_cast<std::size_t>(reports) + 1);
    for (int report = 1; report < reports; ++report) {
        ASSERT_EQ(std::lround(got[static_cast<std::size_t>(report)].x), report);
    }
}

}  // namespace
