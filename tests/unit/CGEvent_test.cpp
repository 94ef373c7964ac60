#include <ApplicationServices/ApplicationServices.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <thread>
#include <vector>

#include "CFTestSupport.h"
#include "CoreGraphics/EventTap.h"
#include "PenPoster.h"
#include "RunLoopUntil.h"

namespace {

constexpr CGEventMask kAll = ~CGEventMask{0};

ProcessSerialNumber Number(pid_t pid) {
    return {0, static_cast<UInt32>(pid)};
}

// What a tap's callback was told.
struct Seen {
    CGEventType type;
    CGPoint location;
    double pressure;
    std::int64_t pointerType;
    std::int64_t enterProximity;
};

class CGEvent : public ::testing::Test {
  protected:
    Owned<CFMachPortRef> Tap(pid_t pid, CGEventMask mask = kAll,
                             CGEventTapOptions options = kCGEventTapOptionListenOnly) {
        ProcessSerialNumber psn = Number(pid);
        return CGEventTapCreateForPSN(&psn, kCGHeadInsertEventTap, options, mask, Note, this);
    }

    // A tap on this very process, on the current loop.
    Owned<CFMachPortRef> TapHere(CGEventMask mask = kAll) {
        Owned<CFMachPortRef> port = Tap(getpid(), mask);
        if (port != nullptr) {
            AddToLoop(port);
            poster.Accept();
        }
        return port;
    }

    static void AddToLoop(CFMachPortRef port) {
        const Owned<CFRunLoopSourceRef> source =
            CFMachPortCreateRunLoopSource(kCFAllocatorDefault, port, 0);
        ASSERT_NE(source, nullptr);
        CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopDefaultMode);
    }

    bool WaitFor(std::size_t count) {
        return RunLoopUntil([&] { return seen.size() >= count; });
    }

    static CGEventRef Note(CGEventTapProxy proxy, CGEventType type, CGEventRef event, void* info) {
        EXPECT_EQ(proxy, nullptr);
        auto& test = *static_cast<CGEvent*>(info);
        test.seen.push_back(
            {type, CGEventGetLocation(event),
             CGEventGetDoubleValueField(event, kCGTabletEventPointPressure),
             CGEventGetIntegerValueField(event, kCGTabletProximityEventPointerType),
             CGEventGetIntegerValueField(event, kCGTabletProximityEventEnterProximity)});
        if (test.whatElse) {
            test.whatElse(event);
        }
        return event;
    }

    PenPoster poster;
    std::vector<Seen> seen;
    std::function<void(CGEventRef)> whatElse;
};

TEST(PenEventRecord, HasTheSizeAndPlacesOfTheContract) {
    const penEvents::Record record = {1, 24, 1.5, -2.5, 0.25, 3, 1};
    std::string expected;
    const auto append = [&expected](auto value) {
        expected.append(reinterpret_cast<const char*>(&value), sizeof value);
    };
    append(std::uint32_t{1});
    append(std::uint32_t{24});
    append(1.5);
    append(-2.5);
    append(0.25);
    append(std::int64_t{3});
    append(std::int64_t{1});
    ASSERT_EQ(expected.size(), 48u);
    EXPECT_EQ(std::memcmp(&record, expected.data(), expected.size()), 0);
}

TEST(PenEventRecord, Address_IsTheAbstractNameOfTheProcess) {
    const penEvents::Address address = penEvents::AddressOf(12345);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&address.name), address.length),
              std::string(reinterpret_cast<const char*>(&address.name.sun_family), 2) +
                  std::string("\0CGEventTap.12345", 17));
}

TEST_F(CGEvent, Tap_HandsOnEveryFieldOfAnEvent) {
    const Owned<CFMachPortRef> port = TapHere();
    ASSERT_NE(port, nullptr);
    ASSERT_TRUE(poster.Post(PenEvent(24, 640.75, 400.25, 0.5, 3, 1)));
    ASSERT_TRUE(poster.Post(PenEvent(6, -1, 0, 1, 1, 0)));
    ASSERT_TRUE(WaitFor(2));
    EXPECT_EQ(seen[0].type, kCGEventTabletProximity);
    EXPECT_EQ(seen[0].location.x, 640.75);
    EXPECT_EQ(seen[0].location.y, 400.25);
    EXPECT_EQ(seen[0].pressure, 0.5);
    EXPECT_EQ(seen[0].pointerType, 3);
    EXPECT_EQ(seen[0].enterProximity, 1);
    EXPECT_EQ(seen[1].type, kCGEventLeftMouseDragged);
    EXPECT_EQ(seen[1].location.x, -1);
    EXPECT_EQ(seen[1].enterProximity, 0);
    CFMachPortInvalidate(port);
}

TEST_F(CGEvent, Fields_ThatAnEventDoesNotHave_AreZero) {
    const Owned<CFMachPortRef> port = TapHere();
    whatElse = [](CGEventRef event) {
        EXPECT_EQ(CGEventGetDoubleValueField(event, kCGTabletProximityEventPointerType), 0);
        EXPECT_EQ(CGEventGetIntegerValueField(event, kCGTabletEventPointPressure), 0);
        EXPECT_EQ(CGEventGetDoubleValueField(event, static_cast<CGEventField>(0)), 0);
        EXPECT_EQ(CGEventGetIntegerValueField(event, static_cast<CGEventField>(99)), 0);
    };
    ASSERT_TRUE(poster.Post(PenEvent(23, 1, 1, 1)));
    ASSERT_TRUE(WaitFor(1));
    CFMachPortInvalidate(port);
}

TEST_F(CGEvent, Mask_LetsOnlyTheWantedTypesThrough) {
    const Owned<CFMachPortRef> port =
        TapHere(CGEventMaskBit(kCGEventLeftMouseUp) | CGEventMaskBit(kCGEventTabletProximity));
    for (const std::uint32_t type : {1U, 2U, 6U, 23U, 24U}) {
        ASSERT_TRUE(poster.Post(PenEvent(type)));
    }
    ASSERT_TRUE(WaitFor(2));
    EXPECT_EQ(seen[0].type, kCGEventLeftMouseUp);
    EXPECT_EQ(seen[1].type, kCGEventTabletProximity);
    CFMachPortInvalidate(port);
}

TEST_F(CGEvent, Packets_OfAnotherSizeVersionOrType_AreDropped) {
    const Owned<CFMachPortRef> port = TapHere();
    const penEvents::Record good = PenEvent(1, 7);
    const std::string bytes(reinterpret_cast<const char*>(&good), sizeof good);
    ASSERT_TRUE(poster.Post(std::string()));
    ASSERT_TRUE(poster.Post(bytes.substr(0, 47)));
    ASSERT_TRUE(poster.Post(bytes + "x"));
    ASSERT_TRUE(poster.Post(bytes + bytes));
    ASSERT_TRUE(poster.Post(std::string(60000, 'x')));
    for (const std::uint32_t version : {0u, 2u, 0x01000000u, 0xFFFFFFFFu}) {
        penEvents::Record other = good;
        other.version = version;
        ASSERT_TRUE(poster.Post(other));
    }
    for (const std::uint32_t type :
         {0u, 3u, 5u, 7u, 25u, 63u, 64u, 65u, 0xFFFFFFFEu, 0xFFFFFFFFu}) {
        ASSERT_TRUE(poster.Post(PenEvent(type)));
    }
    ASSERT_TRUE(poster.Post(good));
    ASSERT_TRUE(WaitFor(1));
    EXPECT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].location.x, 7);
    EXPECT_TRUE(CFMachPortIsValid(port));
    CFMachPortInvalidate(port);
}

TEST_F(CGEvent, EmptyPackets_AreNotTheEnd_NorIsTheEndBehindThem) {
    const Owned<CFMachPortRef> port = TapHere();
    // More than are read at once, in the middle of good ones, and the poster gone by then.
    for (unsigned round = 0; round < 3 * frameworks::EventTap::kEventsAtOnce; ++round) {
        ASSERT_TRUE(poster.Post(std::string()));
        ASSERT_TRUE(poster.Post(PenEvent(1)));
        ASSERT_TRUE(poster.Post(std::string()));
    }
    poster.HangUp();
    ASSERT_TRUE(RunLoopUntil([&] { return !CFMachPortIsValid(port); }));
    EXPECT_EQ(seen.size(), 3u * frameworks::EventTap::kEventsAtOnce);
}

TEST_F(CGEvent, NumbersThatAreNone_AreHandedOn) {
    const Owned<CFMachPortRef> port = TapHere();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double infinity = std::numeric_limits<double>::infinity();
    ASSERT_TRUE(
        poster.Post(PenEvent(6, nan, -infinity, infinity, std::numeric_limits<std::int64_t>::min(),
                             std::numeric_limits<std::int64_t>::max())));
    ASSERT_TRUE(WaitFor(1));
    EXPECT_TRUE(std::isnan(seen[0].location.x));
    EXPECT_EQ(seen[0].location.y, -infinity);
    EXPECT_EQ(seen[0].pressure, infinity);
    EXPECT_EQ(seen[0].pointerType, std::numeric_limits<std::int64_t>::min());
    CFMachPortInvalidate(port);
}

TEST_F(CGEvent, Retain_OfAnEvent_IsHarmless) {
    const Owned<CFMachPortRef> port = TapHere();
    whatElse = [](CGEventRef event) {
        CFRetain(event);
        CFRelease(event);
        CFRelease(event);
    };
    ASSERT_TRUE(poster.Post(PenEvent(1)));
    ASSERT_TRUE(WaitFor(1));
    CFMachPortInvalidate(port);
}

TEST_F(CGEvent, TwoTapsOnOneProcess_BothGetWhatIsSentToThem) {
    const Owned<CFMachPortRef> first = TapHere();
    PenPoster other(getppid());
    ASSERT_TRUE(poster.Post(PenEvent(1, 1)));
    frameworks::UniqueDescriptor kept(dup(poster.Tap()));
    const Owned<CFMachPortRef> second = TapHere();
    ASSERT_TRUE(poster.Post(PenEvent(1, 2)));
    ASSERT_TRUE(WaitFor(2));
    EXPECT_EQ(seen[0].location.x + seen[1].location.x, 3);
    CFMachPortInvalidate(first);
    EXPECT_FALSE(CFMachPortIsValid(first));
    EXPECT_TRUE(CFMachPortIsValid(second));
    CFMachPortInvalidate(second);
}

TEST_F(CGEvent, TapCreate_OnAProcessThatDoesNotPost_IsNull) {
    EXPECT_EQ(Tap(1), nullptr);
    EXPECT_EQ(Tap(0x7FFFFFFF), nullptr);
    EXPECT_EQ(Tap(0), nullptr);
    EXPECT_EQ(Tap(-1), nullptr);
    ProcessSerialNumber high = {1, static_cast<UInt32>(getpid())};
    EXPECT_EQ(CGEventTapCreateForPSN(&high, kCGHeadInsertEventTap, kCGEventTapOptionListenOnly,
                                     kAll, Note, this),
              nullptr);
}

TEST_F(CGEvent, TapCreate_ThatWouldFilter_IsNull) {
    EXPECT_EQ(Tap(getpid(), kAll, kCGEventTapOptionDefault), nullptr);
}

TEST_F(CGEvent, TapCreate_WithoutACallBackOrProcess_Stops) {
    ProcessSerialNumber psn = Number(getpid());
    EXPECT_DEATH(CGEventTapCreateForPSN(&psn, kCGHeadInsertEventTap, kCGEventTapOptionListenOnly,
                                        kAll, nullptr, nullptr),
                 "CGEventTapCreateForPSN");
    EXPECT_DEATH(CGEventTapCreateForPSN(nullptr, kCGHeadInsertEventTap, kCGEventTapOptionListenOnly,
                                        kAll, Note, nullptr),
                 "CGEventTapCreateForPSN");
    EXPECT_DEATH(CGEventGetLocation(nullptr), "CGEventGetLocation");
}

// Somebody else listens under the number of a process that does not.
TEST_F(CGEvent, TapCreate_OnAnImpostor_IsNull) {
    const PenPoster impostor(getppid());
    ASSERT_TRUE(impostor.Listens());
    EXPECT_EQ(Tap(getppid()), nullptr);
}

// Nobody takes taps in there, and nobody has to wait for it.
TEST_F(CGEvent, TapCreate_OnAPosterThatIsBusy_IsNullAtOnce) {
    const pid_t busy = fork();
    ASSERT_NE(busy, -1);
    if (busy == 0) {
        const PenPoster slow(getpid(), 0);
        kill(getpid(), SIGSTOP);
        for (;;)
            pause();
    }
    int status = 0;
    ASSERT_EQ(waitpid(busy, &status, WUNTRACED), busy);
    ASSERT_TRUE(WIFSTOPPED(status));
    // As many as its queue holds.
    std::vector<Owned<CFMachPortRef>> waiting;
    for (int count = 0; count < 8; ++count) {
        Owned<CFMachPortRef> port = Tap(busy);
        if (port == nullptr) break;
        waiting.push_back(std::move(port));
    }
    EXPECT_LT(waiting.size(), 8u);
    EXPECT_FALSE(waiting.empty());
    kill(busy, SIGKILL);
    waitpid(busy, &status, 0);
}

TEST_F(CGEvent, TapCreate_OnAnotherUsersPoster_IsNull_ButRootsIsTapped) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to become other users";
    constexpr uid_t kNobody = 65534;
    int ready[2];
    ASSERT_EQ(pipe2(ready, O_CLOEXEC), 0);
    const pid_t stranger = fork();
    ASSERT_NE(stranger, -1);
    if (stranger == 0) {
        const bool became =
            setresgid(kNobody, kNobody, kNobody) == 0 && setresuid(kNobody, kNobody, kNobody) == 0;
        const PenPoster theirs;
        const char mark = became && theirs.Listens() ? 'y' : 'n';
        if (write(ready[1], &mark, 1) != 1) _exit(1);
        for (;;)
            pause();
    }
    char mark = 0;
    ASSERT_EQ(read(ready[0], &mark, 1), 1);
    ASSERT_EQ(mark, 'y');
    EXPECT_EQ(Tap(stranger), nullptr);

    // The other way round: a user may tap what root posts.
    const pid_t user = fork();
    ASSERT_NE(user, -1);
    if (user == 0) {
        if (setresuid(kNobody, kNobody, kNobody) != 0) _exit(2);
        ProcessSerialNumber psn = Number(getppid());
        _exit(CGEventTapCreateForPSN(&psn, kCGHeadInsertEventTap, kCGEventTapOptionListenOnly, kAll,
                                     Note, nullptr) == nullptr
                  ? 1
                  : 0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(user, &status, 0), user);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    // What was posted while the tap was nobody's.
    kill(stranger, SIGKILL);
    waitpid(stranger, &status, 0);
    close(ready[0]);
    close(ready[1]);
}

TEST_F(CGEvent, PosterThatDiesInMidStream_LosesNothingItSent_AndEndsThePort) {
    int ready[2];
    ASSERT_EQ(pipe2(ready, O_CLOEXEC), 0);
    const pid_t dying = fork();
    ASSERT_NE(dying, -1);
    if (dying == 0) {
        PenPoster theirs;
        if (write(ready[1], "y", 1) != 1) _exit(1);
        theirs.Accept();
        for (int count = 0; count < 100; ++count) {
            theirs.Post(PenEvent(6, count));
        }
        kill(getpid(), SIGKILL);
    }
    char mark = 0;
    ASSERT_EQ(read(ready[0], &mark, 1), 1);
    const Owned<CFMachPortRef> port = Tap(dying);
    ASSERT_NE(port, nullptr);
    int status = 0;
    ASSERT_EQ(waitpid(dying, &status, 0), dying);
    // It is not over while something is left to be read.
    EXPECT_TRUE(CFMachPortIsValid(port));
    AddToLoop(port);
    ASSERT_TRUE(RunLoopUntil([&] { return !CFMachPortIsValid(port); }));
    ASSERT_EQ(seen.size(), 100u);
    EXPECT_EQ(seen[99].location.x, 99);
    close(ready[0]);
    close(ready[1]);
}

TEST_F(CGEvent, PortOfADeadPoster_IsOffItsLoop) {
    const Owned<CFMachPortRef> port = TapHere();
    poster.HangUp();
    ASSERT_TRUE(RunLoopUntil([&] { return !CFMachPortIsValid(port); }));
    // Without a source left there is nothing to run for.
    CFRunLoopRun();
    EXPECT_EQ(CFMachPortCreateRunLoopSource(kCFAllocatorDefault, port, 0), nullptr);
}

TEST_F(CGEvent, PortOfAPosterThatWillSendNoMore_IsInvalid) {
    const Owned<CFMachPortRef> port = TapHere();
    ASSERT_TRUE(poster.Post(PenEvent(1)));
    ASSERT_EQ(shutdown(poster.Tap(), SHUT_WR), 0);
    ASSERT_TRUE(RunLoopUntil([&] { return !CFMachPortIsValid(port); }));
    EXPECT_EQ(seen.size(), 1u);
}

TEST_F(CGEvent, Flood_LeavesTheOthersTheirTurn) {
    const Owned<CFMachPortRef> port = TapHere();
    std::size_t posted = 0;
    while (poster.Post(PenEvent(6, static_cast<double>(posted)))) {
        ++posted;
    }
    ASSERT_GT(posted, 2 * frameworks::EventTap::kEventsAtOnce);
    // The poster goes on as fast as it is read.
    whatElse = [&](CGEventRef) { posted += poster.Post(PenEvent(6)) ? 1 : 0; };
    const std::size_t before = seen.size();
    int turns = 0;
    EXPECT_TRUE(RunLoopUntil([&] { return ++turns == 100; }));
    EXPECT_GT(seen.size(), before);
    EXPECT_LE(seen.size(), before + 101 * 64 * frameworks::EventTap::kEventsAtOnce);
    whatElse = nullptr;
    ASSERT_TRUE(WaitFor(posted));
    CFMachPortInvalidate(port);
}

TEST_F(CGEvent, CallBack_ThatInvalidatesItsPort_GetsNoMore) {
    const Owned<CFMachPortRef> port = TapHere();
    whatElse = [&](CGEventRef) { CFMachPortInvalidate(port); };
    ASSERT_TRUE(poster.Post(PenEvent(1)));
    ASSERT_TRUE(poster.Post(PenEvent(2)));
    ASSERT_TRUE(WaitFor(1));
    RunLoopForTurns(3);
    EXPECT_EQ(seen.size(), 1u);
    // The poster learns of it.
    EXPECT_FALSE(poster.Post(PenEvent(1)));
}

TEST_F(CGEvent, CallBack_ThatRunsTheLoop_IsToldOfTheNextOnesWithinIt) {
    const Owned<CFMachPortRef> port = TapHere();
    int depth = 0;
    int deepest = 0;
    whatElse = [&](CGEventRef) {
        deepest = std::max(deepest, ++depth);
        if (seen.size() == 1) {
            for (int count = 0; count < 3; ++count) {
                ASSERT_TRUE(poster.Post(PenEvent(2)));
            }
            EXPECT_TRUE(WaitFor(4));
        }
        --depth;
    };
    ASSERT_TRUE(poster.Post(PenEvent(1)));
    ASSERT_TRUE(WaitFor(4));
    EXPECT_EQ(deepest, 2);
    CFMachPortInvalidate(port);
}

TEST_F(CGEvent, Descriptors_SentAlong_AreNotTakenIn) {
    const Owned<CFMachPortRef> port = TapHere();
    const auto open = [] {
        int count = 0;
        for (int number = 0; number < 1024; ++number) {
            count += fcntl(number, F_GETFD) != -1 ? 1 : 0;
        }
        return count;
    };
    const int before = open();
    penEvents::Record record = PenEvent(1);
    iovec place = {&record, sizeof record};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr message = {};
    message.msg_iov = &place;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr* const header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int));
    const int sent = STDIN_FILENO;
    std::memcpy(CMSG_DATA(header), &sent, sizeof sent);
    ASSERT_EQ(sendmsg(poster.Tap(), &message, MSG_NOSIGNAL), 48);
    ASSERT_TRUE(WaitFor(1));
    EXPECT_EQ(open(), before);
    CFMachPortInvalidate(port);
}

TEST_F(CGEvent, Tap_OnAnotherThreadsLoop_IsToldThere_AndEndsFromHere) {
    Owned<CFMachPortRef> port = Tap(getpid());
    poster.Accept();
    std::thread::id told;
    whatElse = [&](CGEventRef) { told = std::this_thread::get_id(); };
    std::atomic<bool> ran{false};
    std::thread other([&] {
        AddToLoop(port);
        EXPECT_TRUE(WaitFor(1));
        ran = true;
        // Until the port is invalidated on the other thread.
        CFRunLoopRun();
    });
    ASSERT_TRUE(poster.Post(PenEvent(1)));
    while (!ran)
        std::this_thread::yield();
    EXPECT_EQ(told, other.get_id());
    CFMachPortInvalidate(port);
    other.join();
}

}  // namespace
