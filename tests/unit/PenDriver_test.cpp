#include <Carbon/Carbon.h>
#include <gmock/gmock.h>

#include <cmath>

#include "CFTestSupport.h"
#include "PenDriverProcess.h"
#include "PenTap.h"
#include "RunLoopUntil.h"
#include "TemporaryFolder.h"

#include <ApplicationServices/ApplicationServices.h>

namespace {

using pentest::Records;

std::vector<std::string> Play(const std::string& stroke, const std::string& speed) {
    return {"--replay", pentest::RecordingOf(stroke), "--speed", speed, "--screen", "1920x1080"};
}

TEST(PenDriver, Replay_AsFastAsItGoes_GivesExactlyTheRecords) {
    for (const char* const stroke : pentest::kStrokes) {
        Driver driver(Play(stroke, "max"));
        const PenTap tap(driver.Pid());
        EXPECT_EQ(tap.Read(), pentest::RecordsOf(stroke)) << stroke;
        EXPECT_EQ(driver.Wait(), 0);
        EXPECT_EQ(driver.Said(), "");
    }
}

TEST(PenDriver, Replay_ToSeveralTaps_GivesEachOfThemEverything) {
    std::vector<std::string> words = Play("fast-hatching", "max");
    words.insert(words.end(), {"--taps", "3"});
    Driver driver(words);
    const PenTap first(driver.Pid());
    const PenTap second(driver.Pid());
    const PenTap third(driver.Pid());
    // One after the other: the others' wait for them.
    std::thread reader([&] { EXPECT_EQ(second.Read(), pentest::RecordsOf("fast-hatching")); });
    std::thread another([&] { EXPECT_EQ(third.Read(), pentest::RecordsOf("fast-hatching")); });
    EXPECT_EQ(first.Read(), pentest::RecordsOf("fast-hatching"));
    reader.join();
    another.join();
    EXPECT_EQ(driver.Wait(), 0);
}

TEST(PenDriver, Replay_TakesTheTimeThatItTook) {
    const auto start = std::chrono::steady_clock::now();
    // About three seconds, at ten times the speed.
    Driver driver(Play("pen-eraser-pen", "10"));
    const PenTap tap(driver.Pid());
    EXPECT_EQ(tap.Read(), pentest::RecordsOf("pen-eraser-pen"));
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took.count(), 0.22);
    EXPECT_LT(took.count(), 5);
    EXPECT_EQ(driver.Wait(), 0);
}

TEST(PenDriver, Replay_ToATapThatStopsReading_ComesToItsEnd) {
    Driver driver(Play("fast-hatching", "max"));
    const PenTap tap(driver.Pid());
    EXPECT_EQ(driver.Wait(), 0);
    EXPECT_LT(tap.Read().size(), pentest::RecordsOf("fast-hatching").size());
}

TEST(PenDriver, Replay_OfAMalformedRecording_PlaysUpToThereAndFails) {
    const TemporaryFolder folder;
    std::ifstream whole(pentest::RecordingOf("pen-eraser-pen"));
    std::string line;
    std::string text;
    for (int count = 0; count < 60 && std::getline(whole, line); ++count) {
        text += line + "\n";
    }
    const std::string file = folder.Write("broken.evemu", text + "E: what?\n").string();
    Driver driver({"--replay", file, "--speed", "max", "--screen", "1920x1080"});
    const PenTap tap(driver.Pid());
    const Records got = tap.Read();
    EXPECT_GT(got.size(), 2u);
    // The tool does not stay behind.
    EXPECT_EQ(got.back().type, penEvents::kProximity);
    EXPECT_EQ(got.back().enterProximity, 0);
    EXPECT_EQ(driver.Wait(), 1);
    EXPECT_EQ(driver.Said(), "StylusPadDriver: " + file + ", line 61: this is no event\n");
}

TEST(PenDriver, Mistakes_EndItWithAMessage) {
    Driver missing({"--replay", "/nowhere"});
    EXPECT_EQ(missing.Wait(), 1);
    EXPECT_EQ(missing.Said(), "StylusPadDriver: /nowhere: No such file or directory\n");
    Driver unknown({"--play"});
    EXPECT_EQ(unknown.Wait(), 2);
    EXPECT_EQ(unknown.Said(),
              "StylusPadDriver: there is no option --play (--help shows what there is)\n");
}

TEST(PenDriver, HelpAndVersion_AreShown) {
    Driver help({"--help"});
    EXPECT_EQ(help.Wait(), 0);
    EXPECT_THAT(help.Said(), ::testing::HasSubstr("--replay FILE"));
    Driver version({"--version"});
    EXPECT_EQ(version.Wait(), 0);
    EXPECT_EQ(version.Said(), "StylusPadDriver 1.0.0\n");
}

TEST(PenDriver, HelpAndVersion_ThatFindNoRoom_AreAFailure) {
    for (const char* const option : {"--help", "--version"}) {
        const std::string command = std::string(STYLUSPAD_PROGRAM " ") + option + " >/dev/full";
        const int status = std::system((command + " 2>/dev/null").c_str());
        EXPECT_EQ(WEXITSTATUS(status), 1) << command;
    }
}

TEST(PenDriver, EndSignal_EndsItInOrder) {
    for (const int signal : {SIGINT, SIGTERM}) {
        Driver driver(Play("slow-pressure-ramp", "1"));
        const PenTap tap(driver.Pid());
        ASSERT_EQ(tap.Read(3).size(), 3u);
        kill(driver.Pid(), signal);
        EXPECT_EQ(driver.Wait(), 0);
    }
}

// The whole road but for the service: the recording, the driver, the tap, the run loop.
struct Stroke {
    Records records;

    static CGEventRef Note(CGEventTapProxy, CGEventType type, CGEventRef event, void* info) {
        const CGPoint place = CGEventGetLocation(event);
        static_cast<Stroke*>(info)->records.push_back(pentest::Record(
            type, place.x, place.y, CGEventGetDoubleValueField(event, kCGTabletEventPointPressure),
            CGEventGetIntegerValueField(event, kCGTabletProximityEventPointerType),
            CGEventGetIntegerValueField(event, kCGTabletProximityEventEnterProximity)));
        return event;
    }
};

TEST(PenDriver, Replay_ThroughAnEventTap_GivesExactlyTheRecords) {
    Driver driver(Play("fast-hatching", "max"));
    ProcessSerialNumber psn = {0, static_cast<UInt32>(driver.Pid())};
    Stroke stroke;
    CFMachPortRef made = nullptr;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (made == nullptr && std::chrono::steady_clock::now() < deadline) {
        made = CGEventTapCreateForPSN(&psn, kCGHeadInsertEventTap, kCGEventTapOptionListenOnly,
                                      ~CGEventMask{0}, Stroke::Note, &stroke);
    }
    const Owned<CFMachPortRef> port = made;
    ASSERT_NE(port, nullptr);
    const Owned<CFRunLoopSourceRef> source =
        CFMachPortCreateRunLoopSource(kCFAllocatorDefault, port, 0);
    CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopDefaultMode);
    // The port ends with the driver.
    EXPECT_TRUE(RunLoopUntil([&] { return !CFMachPortIsValid(port); }));
    EXPECT_EQ(stroke.records, pentest::RecordsOf("fast-hatching"));
    EXPECT_EQ(driver.Wait(), 0);
}

TEST(PenDriver, Process_GoesByItsName) {
    Driver driver(Play("slow-pressure-ramp", "1"));
    const PenTap tap(driver.Pid());
    const ProcessSerialNumber psn = {0, static_cast<UInt32>(driver.Pid())};
    CFStringRef name = nullptr;
    ASSERT_EQ(CopyProcessName(&psn, &name), noErr);
    const Owned<CFStringRef> owner = name;
    EXPECT_EQ(TextOf(name), "StylusPadDriver");
}

}  // namespace
