#include <Carbon/Carbon.h>
#include <sys/prctl.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "HIToolbox/Event.h"
#include "HIToolbox/EventHandlers.h"
#include "HIToolbox/LaunchWatcher.h"
#include "LoginTesting.h"
#include "RunLoopTesting.h"

namespace {

using namespace processtest;
using namespace std::chrono_literals;
using filestest::TemporaryFolder;
using filestest::WriteFile;
using frameworks::LaunchWatcher;
using looptest::Alarm;
using looptest::OnAFreshThread;
using looptest::Pair;
using looptest::WaitUntilAsleep;
using looptest::Watched;

const EventTypeSpec kLaunched[] = {{kEventClassApplication, kEventAppLaunched}};

// Runs the application event loop until somebody quits it, but not for ever.
void RunUntilQuit() {
    bool expired = false;
    const auto alarm = Alarm::Set(kPatience, [&expired] {
        expired = true;
        QuitApplicationEventLoop();
    });
    RunApplicationEventLoop();
    alarm->Invalidate();
    EXPECT_FALSE(expired) << "nobody quit the application event loop";
}

void RunApplicationFor(std::chrono::milliseconds time) {
    Alarm::Set(time, [] { QuitApplicationEventLoop(); });
    RunApplicationEventLoop();
}

// Looks for new processes more often than the service does, so that the tests need not wait for it.
class LaunchedApplications : public ::testing::Test {
  protected:
    LaunchedApplications() { LaunchWatcher::interval = 20ms; }
    ~LaunchedApplications() override {
        LaunchWatcher::interval = interval;
        LaunchWatcher::timeToSettle = timeToSettle;
    }

  private:
    const std::chrono::milliseconds interval = LaunchWatcher::interval;
    const std::chrono::milliseconds timeToSettle = LaunchWatcher::timeToSettle;
};

// Several rounds of looking: for what is not to be announced, or not again.
constexpr auto kLongEnough = 200ms;

// Listens for launched applications for as long as it lives.
class Listening {
  public:
    Listening() {
        EXPECT_EQ(InstallEventHandler(GetApplicationEventTarget(), NewEventHandlerUPP(Told),
                                      GetEventTypeCount(kLaunched), kLaunched, this, &handler),
                  noErr);
    }
    Listening(const Listening&) = delete;
    Listening& operator=(const Listening&) = delete;
    ~Listening() {
        if (handler != nullptr) Stop();
    }

    void Stop() {
        EXPECT_EQ(RemoveEventHandler(handler), noErr);
        handler = nullptr;
    }
    // Runs the application until PID has been announced that often by that name, and then on, lest
    // it be more often.
    void ExpectTimes(int times, const std::string& name, pid_t pid) {
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        while (Times(name, pid) < times && std::chrono::steady_clock::now() < deadline) {
            RunApplicationFor(LaunchWatcher::interval);
        }
        RunApplicationFor(kLongEnough);
        EXPECT_EQ(Times(name, pid), times) << name;
    }
    // Other processes come and go on the machine.
    int Times(const std::string& name, pid_t pid) const {
        return static_cast<int>(
            std::count(announced.begin(), announced.end(), std::make_pair(name, pid)));
    }

    // In the order in which they were announced.
    std::vector<std::pair<std::string, pid_t>> announced;
    // Called with each of them.
    std::function<void(pid_t)> work = [](pid_t) {};

  private:
    static OSStatus Told(EventHandlerCallRef, EventRef event, void* info) {
        Listening& self = *static_cast<Listening*>(info);
        EXPECT_EQ(GetEventClass(event), OSType{kEventClassApplication});
        EXPECT_EQ(GetEventKind(event), UInt32{kEventAppLaunched});
        ProcessSerialNumber psn = {7, 7};
        EXPECT_EQ(GetEventParameter(event, kEventParamProcessID, typeProcessSerialNumber, nullptr,
                                    sizeof psn, nullptr, &psn),
                  noErr);
        EXPECT_EQ(psn.highLongOfPSN, 0u);
        CFStringRef name = nullptr;
        const std::string text = CopyProcessName(&psn, &name) == noErr
                                     ? TextOf(Owned<CFStringRef>(name))
                                     : std::string("<gone>");
        const auto pid = static_cast<pid_t>(psn.lowLongOfPSN);
        self.announced.emplace_back(text, pid);
        self.work(pid);
        return noErr;
    }

    EventHandlerRef handler = nullptr;
};

OpaqueEventRef EventWith(const ProcessSerialNumber& psn) {
    return OpaqueEventRef{kEventClassApplication,
                          kEventAppLaunched,
                          kEventParamProcessID,
                          typeProcessSerialNumber,
                          &psn,
                          sizeof psn};
}

TEST(CarbonEvents, GetEventParameter_GivesTheWholeParameter) {
    const ProcessSerialNumber sent = {0, 4711};
    OpaqueEventRef event = EventWith(sent);
    for (const EventParamType asked :
         {EventParamType{typeProcessSerialNumber}, EventParamType{typeWildCard}}) {
        ProcessSerialNumber psn = {1, 1};
        EventParamType type = 0;
        ByteCount size = 0;
        EXPECT_EQ(
            GetEventParameter(&event, kEventParamProcessID, asked, &type, sizeof psn, &size, &psn),
            noErr);
        EXPECT_EQ(type, EventParamType{typeProcessSerialNumber});
        EXPECT_EQ(size, sizeof psn);
        EXPECT_EQ(psn.lowLongOfPSN, 4711u);
        EXPECT_EQ(psn.highLongOfPSN, 0u);
    }
}

TEST(CarbonEvents, GetEventParameter_WithoutABuffer_TellsTheSize) {
    const ProcessSerialNumber sent = {0, 4711};
    OpaqueEventRef event = EventWith(sent);
    ByteCount size = 0;
    EXPECT_EQ(GetEventParameter(&event, kEventParamProcessID, typeProcessSerialNumber, nullptr, 0,
                                &size, nullptr),
              noErr);
    EXPECT_EQ(size, sizeof sent);
}

TEST(CarbonEvents, GetEventParameter_IntoASmallBuffer_FillsItAndNoMore) {
    const ProcessSerialNumber sent = {0x01020304, 0x05060708};
    OpaqueEventRef event = EventWith(sent);
    UInt8 bytes[8] = {9, 9, 9, 9, 9, 9, 9, 9};
    ByteCount size = 0;
    EXPECT_EQ(GetEventParameter(&event, kEventParamProcessID, typeProcessSerialNumber, nullptr, 4,
                                &size, bytes),
              noErr);
    EXPECT_EQ(size, sizeof sent);
    EXPECT_EQ(std::memcmp(bytes, &sent, 4), 0);
    EXPECT_EQ(bytes[4], 9);
}

TEST(CarbonEvents, GetEventParameter_OfAnotherName_IsNotFound) {
    const ProcessSerialNumber sent = {0, 1};
    OpaqueEventRef event = EventWith(sent);
    EXPECT_EQ(GetEventParameter(&event, 0x2D2D2D2D, typeWildCard, nullptr, 0, nullptr, nullptr),
              eventParameterNotFoundErr);
}

TEST(CarbonEvents, GetEventParameter_AsAnotherType_IsRefused) {
    const ProcessSerialNumber sent = {0, 1};
    OpaqueEventRef event = EventWith(sent);
    ProcessSerialNumber psn = {7, 7};
    EXPECT_EQ(GetEventParameter(&event, kEventParamProcessID, 0x54455854, nullptr, sizeof psn,
                                nullptr, &psn),
              errAECoercionFail);
    EXPECT_EQ(psn.lowLongOfPSN, 7u);
}

// What handlers were called with, by user data.
std::vector<int> called;
OSStatus Note(EventHandlerCallRef callRef, EventRef, void* info) {
    EXPECT_EQ(callRef, nullptr);
    called.push_back(*static_cast<int*>(info));
    return noErr;
}

TEST(CarbonEvents, Send_ReachesEveryHandlerOfTheType_TheLastOneFirst) {
    called.clear();
    int marks[] = {1, 2, 3};
    const EventTypeSpec other[] = {{kEventClassApplication, 6}};
    EventHandlerRef handlers[3];
    ASSERT_EQ(InstallEventHandler(GetApplicationEventTarget(), Note, 1, kLaunched, &marks[0],
                                  &handlers[0]),
              noErr);
    ASSERT_EQ(
        InstallEventHandler(GetApplicationEventTarget(), Note, 1, other, &marks[1], &handlers[1]),
        noErr);
    ASSERT_EQ(InstallEventHandler(GetApplicationEventTarget(), Note, 1, kLaunched, &marks[2],
                                  &handlers[2]),
              noErr);
    const ProcessSerialNumber psn = {0, 1};
    OpaqueEventRef event = EventWith(psn);
    frameworks::SendToApplication(event);
    EXPECT_EQ(called, (std::vector<int>{3, 1}));
    for (const EventHandlerRef handler : handlers) {
        EXPECT_EQ(RemoveEventHandler(handler), noErr);
    }
    frameworks::SendToApplication(event);
    EXPECT_EQ(called.size(), 2u);
}

TEST(CarbonEvents, InstallEventHandler_ThatIsInstalledAlready_IsRefused) {
    int mark = 1;
    int another = 2;
    EventHandlerRef first;
    EventHandlerRef second;
    const EventTargetRef target = GetApplicationEventTarget();
    ASSERT_EQ(InstallEventHandler(target, Note, 1, kLaunched, &mark, &first), noErr);
    EXPECT_EQ(InstallEventHandler(target, Note, 1, kLaunched, &mark, nullptr),
              eventHandlerAlreadyInstalledErr);
    EXPECT_EQ(InstallEventHandler(target, Note, 1, kLaunched, &another, &second), noErr);
    EXPECT_EQ(RemoveEventHandler(first), noErr);
    EXPECT_EQ(RemoveEventHandler(second), noErr);
    EXPECT_EQ(RemoveEventHandler(second), paramErr);
}

TEST(CarbonEvents, InstallEventHandler_WithoutTargetHandlerOrList_IsRefused) {
    const EventTargetRef target = GetApplicationEventTarget();
    EXPECT_EQ(InstallEventHandler(nullptr, Note, 1, kLaunched, nullptr, nullptr), paramErr);
    EXPECT_EQ(InstallEventHandler(target, nullptr, 1, kLaunched, nullptr, nullptr), paramErr);
    EXPECT_EQ(InstallEventHandler(target, Note, 1, nullptr, nullptr, nullptr), paramErr);
}

TEST(CarbonEvents, Handler_ThatRemovesItselfAndAnother_IsFine) {
    struct Removing {
        EventHandlerRef one = nullptr;
        EventHandlerRef other = nullptr;
        int calls = 0;

        static OSStatus Told(EventHandlerCallRef, EventRef, void* info) {
            Removing& self = *static_cast<Removing*>(info);
            ++self.calls;
            EXPECT_EQ(RemoveEventHandler(self.one), noErr);
            EXPECT_EQ(RemoveEventHandler(self.other), noErr);
            return noErr;
        }
    } removing;
    called.clear();
    int mark = 1;
    const EventTargetRef target = GetApplicationEventTarget();
    ASSERT_EQ(InstallEventHandler(target, Note, 1, kLaunched, &mark, &removing.other), noErr);
    ASSERT_EQ(InstallEventHandler(target, Removing::Told, 1, kLaunched, &removing, &removing.one),
              noErr);
    const ProcessSerialNumber psn = {0, 1};
    OpaqueEventRef event = EventWith(psn);
    frameworks::SendToApplication(event);
    frameworks::SendToApplication(event);
    EXPECT_EQ(removing.calls, 1);
    EXPECT_TRUE(called.empty());
}

TEST(ApplicationEventLoop, Quit_InsideACallback_EndsIt) {
    RunApplicationFor(1ms);
    // And it can be run again.
    RunApplicationFor(1ms);
}

TEST(ApplicationEventLoop, Quit_FromAnotherThreadWhileItWaitsWithoutAnySource_EndsIt) {
    std::thread other([thread = gettid()] {
        WaitUntilAsleep(thread);
        QuitApplicationEventLoop();
    });
    RunApplicationEventLoop();
    other.join();
}

TEST(ApplicationEventLoop, Quit_BeforeItIsEntered_IsForgotten) {
    QuitApplicationEventLoop();
    bool came = false;
    Alarm::Set(20ms, [&came] {
        came = true;
        QuitApplicationEventLoop();
    });
    RunApplicationEventLoop();
    EXPECT_TRUE(came);
}

TEST(ApplicationEventLoop, CFRunLoopStop_DoesNotEndIt) {
    bool came = false;
    Alarm::Set(1ms, [] { CFRunLoopStop(CFRunLoopGetCurrent()); });
    Alarm::Set(20ms, [&came] {
        came = true;
        QuitApplicationEventLoop();
    });
    RunApplicationEventLoop();
    EXPECT_TRUE(came);
}

TEST(ApplicationEventLoop, ServesTheMainRunLoopsSources) {
    Pair pair;
    Watched socket(pair.near.Get(), kCFSocketReadCallBack,
                   [](auto&&...) { QuitApplicationEventLoop(); });
    socket.AddToLoop();
    EXPECT_EQ(write(pair.far.Get(), "x", 1), 1);
    RunUntilQuit();
    EXPECT_EQ(socket.calls, 1);
}

TEST(ApplicationEventLoop, WithoutAHandlerForLaunches_DoesNotWakeUp) {
    __CFRunLoop& loop = __CFRunLoop::Main();
    const std::uint64_t before = loop.Turns();
    RunApplicationFor(1200ms);
    EXPECT_EQ(loop.Turns() - before, 1u);
}

TEST(ApplicationEventLoop, WithAHandlerForLaunches_WakesUpTwiceASecondUntilItIsRemoved) {
    __CFRunLoop& loop = __CFRunLoop::Main();
    Listening listening;
    std::uint64_t before = loop.Turns();
    const auto began = std::chrono::steady_clock::now();
    RunApplicationFor(1200ms);
    // A busy machine may let it run for longer.
    const auto halfSeconds =
        static_cast<std::uint64_t>((std::chrono::steady_clock::now() - began) / 500ms);
    EXPECT_GE(loop.Turns() - before, 2u);
    // And the turn in which it is told to end.
    EXPECT_LE(loop.Turns() - before, halfSeconds + 1);
    listening.Stop();
    before = loop.Turns();
    RunApplicationFor(600ms);
    EXPECT_EQ(loop.Turns() - before, 1u);
}

TEST(ApplicationEventLoopDeathTest, Run_OnAnotherThread_Stops) {
    EXPECT_DEATH(OnAFreshThread([] { RunApplicationEventLoop(); }),
                 "RunApplicationEventLoop: this is not the main thread");
}

TEST_F(LaunchedApplications, AreAnnouncedOnceEach) {
    const TemporaryFolder folder;
    const std::string longName = "An Application With A Very Long Name";
    const Child before = Start(MakeSleeper(folder, "there before"));
    ExpectProgram(before, "there before");
    Listening listening;
    const Child first = Start(MakeSleeper(folder, "SystemUIServer"));
    const Child second = Start(MakeSleeper(folder, longName));
    listening.ExpectTimes(1, "SystemUIServer", first.Pid());
    listening.ExpectTimes(1, longName, second.Pid());
    listening.ExpectTimes(0, "there before", before.Pid());
    // The same program once more is another launch.
    const Child again = Start(folder / "SystemUIServer");
    listening.ExpectTimes(1, "SystemUIServer", again.Pid());
    listening.ExpectTimes(1, "SystemUIServer", first.Pid());
}

TEST_F(LaunchedApplications, CanBeWaitedFor) {
    const TemporaryFolder folder;
    const std::string program = MakeSleeper(folder, "SystemUIServer");
    // Held while it starts: it may be announced before its number is known here.
    std::mutex starting;
    pid_t pid = -1;
    Listening listening;
    listening.work = [&](pid_t announced) {
        const std::lock_guard<std::mutex> lock(starting);
        if (announced == pid) QuitApplicationEventLoop();
    };
    std::thread other([&, thread = gettid()] {
        WaitUntilAsleep(thread);
        const std::lock_guard<std::mutex> lock(starting);
        pid = Start(program).Leak();
    });
    RunUntilQuit();
    other.join();
    const Child child(pid);
    EXPECT_EQ(listening.Times("SystemUIServer", pid), 1);
}

// A script that becomes another program when the file "go" is there, as session scripts do when
// they have prepared everything.
std::string MakeSessionScript(const TemporaryFolder& folder, const std::string& program) {
    return MakeScript(folder, "session",
                      "#!/bin/sh\nwhile [ ! -e '" + (folder / "go") +
                          "' ]; do sleep 0.02; done\nexec '" + program + "' 60\n");
}

TEST_F(LaunchedApplications, ThatBecomeAnotherProgramSoon_AreAnnouncedAgain) {
    const TemporaryFolder folder;
    const std::string program = MakeSleeper(folder, "SystemUIServer");
    Listening listening;
    const Child child = Start(MakeSessionScript(folder, program));
    listening.ExpectTimes(1, "session", child.Pid());
    WriteFile(folder / "go");
    listening.ExpectTimes(1, "SystemUIServer", child.Pid());
    listening.ExpectTimes(1, "session", child.Pid());
}

TEST_F(LaunchedApplications, ThatBecomeAnotherProgramLate_AreNotAnnouncedAgain) {
    LaunchWatcher::timeToSettle = 50ms;
    const TemporaryFolder folder;
    const std::string program = MakeSleeper(folder, "SystemUIServer");
    Listening listening;
    const Child child = Start(MakeSessionScript(folder, program));
    listening.ExpectTimes(1, "session", child.Pid());
    WriteFile(folder / "go");
    ExpectProgram(child, "SystemUIServer");
    listening.ExpectTimes(0, "SystemUIServer", child.Pid());
}

TEST_F(LaunchedApplications, ThatAreMereCopies_AreAnnouncedTooIfTheyStaySo) {
    Listening listening;
    const pid_t pid = fork();
    ASSERT_NE(pid, -1);
    if (pid == 0) {
        prctl(PR_SET_NAME, "stays a copy");
        pause();
        _exit(0);
    }
    const Child child(pid);
    ExpectProgram(child, "stays a copy");
    listening.ExpectTimes(1, "stays a copy", pid);
}

TEST_F(LaunchedApplications, WithANumberThatAnotherHadBefore_AreAnnounced) {
    const bool ran = WithOwnProcesses([] {
        const TemporaryFolder folder;
        const std::string program = MakeSleeper(folder, "SystemUIServer");
        Listening listening;
        constexpr int kTimes = 3;
        pid_t pid = 0;
        for (int time = 1; time <= kTimes; ++time) {
            if (time > 1) {
                std::ofstream("/proc/sys/kernel/ns_last_pid") << pid - 1;
            }
            const Child child = Start(program);
            if (time > 1) {
                EXPECT_EQ(child.Pid(), pid);
            }
            pid = child.Pid();
            listening.ExpectTimes(time, "SystemUIServer", pid);
        }
    });
    if (!ran) GTEST_SKIP() << "a process table of one's own is not allowed here";
}

TEST_F(LaunchedApplications, Handler_ThatStopsListening_HearsNoMore) {
    const TemporaryFolder folder;
    const std::string program = MakeSleeper(folder, "SystemUIServer");
    Listening listening;
    listening.work = [&listening](pid_t) { listening.Stop(); };
    const Child first = Start(program);
    const Child second = Start(program);
    RunApplicationFor(kLongEnough);
    EXPECT_EQ(listening.announced.size(), 1u);
}

TEST_F(LaunchedApplications, GraphicalSession_IsAnnouncedByItsLeader) {
    const bool ran = WithOwnMounts([] {
        const TemporaryFolder folder;
        const Child leader = Start(MakeSleeper(folder, "desktop"));
        const Child another = Start(MakeSleeper(folder, "another desktop"));
        logintest::LeaveSeat();
        ExpectProgram(leader, "desktop");
        ExpectProgram(another, "another desktop");
        Listening listening;
        const auto expectTimes = [&](int leadersTimes, int othersTimes) {
            listening.ExpectTimes(leadersTimes, "SystemUIServer", leader.Pid());
            listening.ExpectTimes(othersTimes, "SystemUIServer", another.Pid());
        };
        // A login screen, then a person at a text terminal: neither is it.
        logintest::TakeSeat("c1", 120, "greeter", "wayland", leader.Pid());
        expectTimes(0, 0);
        logintest::TakeSeat("2", 1000, "user", "tty", leader.Pid());
        expectTimes(0, 0);
        // Once, however long it lasts.
        logintest::TakeSeat("3", 1000, "user", "wayland", leader.Pid());
        expectTimes(1, 0);
        // Another person's session, and the same one again after nobody was there.
        logintest::TakeSeat("4", 1001, "user", "x11", another.Pid());
        expectTimes(1, 1);
        logintest::LeaveSeat();
        expectTimes(1, 1);
        logintest::TakeSeat("4", 1001, "user", "x11", another.Pid());
        expectTimes(1, 2);
    });
    if (!ran) GTEST_SKIP() << "mounts of one's own are not allowed here";
}

TEST_F(LaunchedApplications, GraphicalSession_ThatWasThereBefore_IsNotAnnounced) {
    const bool ran = WithOwnMounts([] {
        const TemporaryFolder folder;
        const Child leader = Start(MakeSleeper(folder, "desktop"));
        ExpectProgram(leader, "desktop");
        logintest::TakeSeat("3", 1000, "user", "wayland", leader.Pid());
        Listening listening;
        listening.ExpectTimes(0, "SystemUIServer", leader.Pid());
    });
    if (!ran) GTEST_SKIP() << "mounts of one's own are not allowed here";
}

TEST_F(LaunchedApplications, GraphicalSession_WithALeaderThatIsNewItself_IsAnnouncedOnce) {
    const bool ran = WithOwnMounts([] {
        const TemporaryFolder folder;
        logintest::LeaveSeat();
        Listening listening;
        // Both before the first look.
        const Child leader = Start(MakeSleeper(folder, "desktop"));
        ExpectProgram(leader, "desktop");
        logintest::TakeSeat("3", 1000, "user", "wayland", leader.Pid());
        listening.ExpectTimes(1, "SystemUIServer", leader.Pid());
    });
    if (!ran) GTEST_SKIP() << "mounts of one's own are not allowed here";
}

}  // namespace
