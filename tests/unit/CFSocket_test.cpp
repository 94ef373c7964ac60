#include <CoreFoundation/CFSocket.h>
#include <netinet/tcp.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <vector>

#include "RunLoopTesting.h"

namespace {

using namespace looptest;
using namespace std::chrono_literals;

constexpr CFOptionFlags kReadAndWrite = kCFSocketReadCallBack | kCFSocketWriteCallBack;

void DoNothing(CFSocketRef, CFSocketCallBackType, CFDataRef, const void*, void*) {}

Owned<CFSocketRef> Wrap(int native, CFOptionFlags what = kCFSocketReadCallBack,
                        const CFSocketContext* context = nullptr) {
    return CFSocketCreateWithNative(kCFAllocatorDefault, native, what, DoNothing, context);
}

// What a client of the service does: it closes the descriptor itself, and invalidates later or
// never.
void KeepOpen(CFSocketRef socket) {
    CFSocketSetSocketFlags(socket, kCFSocketAutomaticallyReenableReadCallBack);
}

void AddToLoop(CFSocketRef socket) {
    const Owned<CFRunLoopSourceRef> source =
        CFSocketCreateRunLoopSource(kCFAllocatorDefault, socket, 0);
    CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopCommonModes);
}

// Counts how it is kept.
struct Cell {
    int retains = 0;
    int releases = 0;

    CFSocketContext Context() {
        return CFSocketContext{
            0, this,
            [](const void* info) {
                ++const_cast<Cell*>(static_cast<const Cell*>(info))->retains;
                return info;
            },
            [](const void* info) { ++const_cast<Cell*>(static_cast<const Cell*>(info))->releases; },
            [](const void*) { return CFStringRef(CFRetain(CFSTR("a cell"))); }};
    }
};

TEST(CFSocket, Create_OfADescriptorThatIsNotOpen_GivesNull) {
    EXPECT_EQ(Wrap(-1), nullptr);
    int pair[2];
    ASSERT_EQ(pipe(pair), 0);
    close(pair[0]);
    close(pair[1]);
    EXPECT_EQ(Wrap(pair[0]), nullptr);
}

TEST(CFSocket, Create_ForDataOrConnect_GivesNull) {
    const Pair pair;
    EXPECT_EQ(Wrap(pair.near.Get(), 3), nullptr);
    EXPECT_EQ(Wrap(pair.near.Get(), kCFSocketReadCallBack | 4), nullptr);
    EXPECT_EQ(Wrap(pair.near.Get(), 4), nullptr);
}

TEST(CFSocket, Create_OfASocketThatHasAWrapper_GivesThatOne) {
    Pair pair;
    const Owned<CFSocketRef> first = Wrap(pair.near.Get());
    KeepOpen(first);
    Cell cell;
    const CFSocketContext context = cell.Context();
    const Owned<CFSocketRef> second = Wrap(pair.near.Get(), kReadAndWrite, &context);
    EXPECT_EQ(static_cast<CFSocketRef>(first), static_cast<CFSocketRef>(second));
    EXPECT_EQ(cell.retains, 0);
    EXPECT_EQ(cell.releases, 0);
}

// A wrapper may be found in the moment in which its last reference goes.
TEST(CFSocket, Create_OfOneSocketOnTwoThreads_NeverGivesAWrapperThatIsGoing) {
    Pair pair;
    const auto wrapAndRelease = [native = pair.near.Get()] {
        for (int turn = 0; turn < 20000; ++turn) {
            const Owned<CFSocketRef> socket = Wrap(native);
            ASSERT_NE(socket, nullptr);
            KeepOpen(socket);
        }
    };
    std::thread other(wrapAndRelease);
    wrapAndRelease();
    other.join();
    EXPECT_TRUE(looptest::IsOpen(pair.near.Get()));
}

TEST(CFSocket, Create_OfASocketWhoseWrapperWasInvalidated_GivesANewOne) {
    Pair pair;
    const Owned<CFSocketRef> first = Wrap(pair.near.Get());
    KeepOpen(first);
    CFSocketInvalidate(first);
    const Owned<CFSocketRef> second = Wrap(pair.near.Get());
    KeepOpen(second);
    EXPECT_NE(static_cast<CFSocketRef>(first), static_cast<CFSocketRef>(second));
}

TEST(CFSocket, Flags_AreApplesAtFirst) {
    Pair pair;
    const Owned<CFSocketRef> reads = Wrap(pair.near.Get(), kReadAndWrite);
    EXPECT_EQ(
        CFSocketGetSocketFlags(reads),
        CFOptionFlags{kCFSocketAutomaticallyReenableReadCallBack | kCFSocketCloseOnInvalidate});
    KeepOpen(reads);
    EXPECT_EQ(CFSocketGetSocketFlags(reads),
              CFOptionFlags{kCFSocketAutomaticallyReenableReadCallBack});
    const Listener listener;
    const Owned<CFSocketRef> accepts = Wrap(listener.socket.Get(), kCFSocketAcceptCallBack);
    EXPECT_EQ(
        CFSocketGetSocketFlags(accepts),
        CFOptionFlags{kCFSocketAutomaticallyReenableAcceptCallBack | kCFSocketCloseOnInvalidate});
    CFSocketSetSocketFlags(accepts, 0);
}

TEST(CFSocket, Invalidate_WithTheFlag_ClosesTheDescriptor) {
    Pair pair;
    const int native = pair.near.Leak();
    const Owned<CFSocketRef> socket = Wrap(native);
    CFSocketInvalidate(socket);
    EXPECT_FALSE(looptest::IsOpen(native));
    EXPECT_EQ(ReadAll(pair.far.Get()), "");
}

TEST(CFSocket, Invalidate_WithoutTheFlag_LeavesTheDescriptorOpen) {
    Pair pair;
    const Owned<CFSocketRef> socket = Wrap(pair.near.Get());
    KeepOpen(socket);
    CFSocketInvalidate(socket);
    EXPECT_TRUE(looptest::IsOpen(pair.near.Get()));
}

TEST(CFSocket, Release_OfASocketThatNeverHadASource_ClosesTheDescriptor) {
    Pair pair;
    const int native = pair.near.Leak();
    CFRelease(CFSocketCreateWithNative(kCFAllocatorDefault, native, kCFSocketReadCallBack,
                                       DoNothing, nullptr));
    EXPECT_FALSE(looptest::IsOpen(native));
}

TEST(CFSocket, Invalidate_WhenTheNumberStandsForAnotherFile_DoesNotCloseThat) {
    Pair pair;
    const int native = pair.near.Leak();
    const Owned<CFSocketRef> socket = Wrap(native);
    close(native);
    Pair another;
    ASSERT_NE(dup2(another.near.Get(), native), -1);
    const UniqueDescriptor reused(native);
    CFSocketInvalidate(socket);
    EXPECT_TRUE(looptest::IsOpen(native));
}

TEST(CFSocket, CreateRunLoopSource_GivesTheSameOneEveryTime) {
    Pair pair;
    const Owned<CFSocketRef> socket = Wrap(pair.near.Get());
    KeepOpen(socket);
    const Owned<CFRunLoopSourceRef> first =
        CFSocketCreateRunLoopSource(kCFAllocatorDefault, socket, 0);
    const Owned<CFRunLoopSourceRef> second =
        CFSocketCreateRunLoopSource(kCFAllocatorDefault, socket, 1);
    EXPECT_EQ(static_cast<CFRunLoopSourceRef>(first), static_cast<CFRunLoopSourceRef>(second));
}

TEST(CFSocket, CreateRunLoopSource_OfAnInvalidSocket_GivesNull) {
    Pair pair;
    const Owned<CFSocketRef> socket = Wrap(pair.near.Get());
    KeepOpen(socket);
    CFSocketInvalidate(socket);
    EXPECT_EQ(CFSocketCreateRunLoopSource(kCFAllocatorDefault, socket, 0), nullptr);
}

TEST(CFSocket, Context_IsRetainedOnceAndReleasedOnce) {
    Cell cell;
    const CFSocketContext context = cell.Context();
    {
        Pair pair;
        const Owned<CFSocketRef> socket = Wrap(pair.near.Get(), kCFSocketReadCallBack, &context);
        KeepOpen(socket);
        EXPECT_EQ(cell.retains, 1);
        EXPECT_EQ(cell.releases, 0);
        CFSocketInvalidate(socket);
        EXPECT_EQ(cell.releases, 1);
        CFSocketInvalidate(socket);
    }
    EXPECT_EQ(cell.releases, 1);
}

TEST(CFSocket, Context_OfASocketThatIsNeverInvalidated_IsReleasedWithIt) {
    Cell cell;
    const CFSocketContext context = cell.Context();
    {
        Pair pair;
        const Owned<CFSocketRef> socket = Wrap(pair.near.Get(), kCFSocketReadCallBack, &context);
        KeepOpen(socket);
    }
    EXPECT_EQ(cell.releases, 1);
}

TEST(CFSocket, Context_DescribesTheSocket) {
    Cell cell;
    const CFSocketContext context = cell.Context();
    Pair pair;
    const Owned<CFSocketRef> socket = Wrap(pair.near.Get(), kCFSocketReadCallBack, &context);
    KeepOpen(socket);
    const auto describe = [&socket] { return frameworks::AnyObject(socket, "test").Describe(); };
    EXPECT_NE(describe().find("valid, a cell}"), std::string::npos) << describe();
    CFSocketInvalidate(socket);
    EXPECT_NE(describe().find(", invalid}"), std::string::npos) << describe();
}

TEST(CFSocket, Read_IsToldUntilAllIsRead) {
    OnAFreshThread([] {
        Pair pair;
        std::string heard;
        Watched socket(pair.near.Get(), kCFSocketReadCallBack,
                       [&](Watched&, CFSocketCallBackType what, const void* data) {
                           EXPECT_EQ(what, CFOptionFlags{kCFSocketReadCallBack});
                           EXPECT_EQ(data, nullptr);
                           char byte;
                           EXPECT_EQ(read(pair.near.Get(), &byte, 1), 1);
                           heard.push_back(byte);
                           if (heard.size() == 3) StopLoop();
                       });
        socket.AddToLoop();
        EXPECT_EQ(write(pair.far.Get(), "abc", 3), 3);
        RunUntilStopped();
        EXPECT_EQ(heard, "abc");
    });
}

TEST(CFSocket, Read_WithoutTheFlag_ComesOncePerEnabling) {
    OnAFreshThread([] {
        Pair pair;
        Watched socket(pair.near.Get(), kCFSocketReadCallBack, [](auto&&...) {});
        CFSocketSetSocketFlags(socket.socket, 0);
        socket.AddToLoop();
        EXPECT_EQ(write(pair.far.Get(), "abc", 3), 3);
        RunFor(20ms);
        EXPECT_EQ(socket.calls, 1);
        CFSocketEnableCallBacks(socket.socket, kCFSocketReadCallBack);
        RunFor(20ms);
        EXPECT_EQ(socket.calls, 2);
    });
}

TEST(CFSocket, Read_AfterThePeerHasGone_FindsTheEnd) {
    OnAFreshThread([] {
        Pair pair;
        Watched socket(pair.near.Get(), kCFSocketReadCallBack, [&pair](auto&&...) {
            char byte;
            EXPECT_EQ(read(pair.near.Get(), &byte, 1), 0);
            StopLoop();
        });
        socket.AddToLoop();
        pair.far.Close();
        RunUntilStopped();
    });
}

TEST(CFSocket, Read_AfterAReset_FindsTheErrorAndThenTheEnd) {
    OnAFreshThread([] {
        const Listener listener;
        UniqueDescriptor client = listener.Connect();
        const UniqueDescriptor served(
            accept4(listener.socket.Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        std::vector<int> results;
        Watched socket(served.Get(), kCFSocketReadCallBack, [&](auto&&...) {
            char byte;
            results.push_back(read(served.Get(), &byte, 1) == -1 ? errno : 0);
            if (results.size() == 2) StopLoop();
        });
        socket.AddToLoop();
        const linger now{1, 0};
        EXPECT_EQ(setsockopt(client.Get(), SOL_SOCKET, SO_LINGER, &now, sizeof now), 0);
        client.Close();
        RunUntilStopped();
        EXPECT_EQ(results, (std::vector<int>{ECONNRESET, 0}));
    });
}

TEST(CFSocket, Write_ComesOncePerEnabling) {
    OnAFreshThread([] {
        Pair pair;
        Watched socket(pair.near.Get(), kReadAndWrite,
                       [](Watched&, CFSocketCallBackType what, const void*) {
                           EXPECT_EQ(what, CFOptionFlags{kCFSocketWriteCallBack});
                       });
        socket.AddToLoop();
        for (int expected = 1; expected <= 3; ++expected) {
            RunFor(10ms);
            EXPECT_EQ(socket.calls, expected);
            CFSocketEnableCallBacks(socket.socket, kCFSocketWriteCallBack);
        }
    });
}

TEST(CFSocket, Write_WithTheFlag_ComesAgainAndAgain) {
    OnAFreshThread([] {
        Pair pair;
        Watched socket(pair.near.Get(), kReadAndWrite, [](Watched& self, auto&&...) {
            if (self.calls == 5) StopLoop();
        });
        CFSocketSetSocketFlags(socket.socket, kCFSocketAutomaticallyReenableWriteCallBack);
        socket.AddToLoop();
        RunUntilStopped();
        EXPECT_EQ(socket.calls, 5);
    });
}

TEST(CFSocket, Write_DisabledBeforeOrBehindAdding_DoesNotComeUntilEnabled) {
    OnAFreshThread([] {
        for (const bool before : {true, false}) {
            Pair pair;
            Watched socket(pair.near.Get(), kReadAndWrite, [](auto&&...) { StopLoop(); });
            if (before) CFSocketDisableCallBacks(socket.socket, kCFSocketWriteCallBack);
            socket.AddToLoop();
            if (!before) CFSocketDisableCallBacks(socket.socket, kCFSocketWriteCallBack);
            RunFor(10ms);
            EXPECT_EQ(socket.calls, 0) << before;
            CFSocketEnableCallBacks(socket.socket, kCFSocketWriteCallBack);
            RunUntilStopped();
            EXPECT_EQ(socket.calls, 1) << before;
        }
    });
}

TEST(CFSocket, Write_EnabledByAnotherThreadWhileTheLoopWaits_Comes) {
    OnAFreshThread([] {
        Pair pair;
        Watched socket(pair.near.Get(), kReadAndWrite, [](auto&&...) { StopLoop(); });
        CFSocketDisableCallBacks(socket.socket, kCFSocketWriteCallBack);
        socket.AddToLoop();
        std::thread other([&socket, thread = gettid()] {
            WaitUntilAsleep(thread);
            CFSocketEnableCallBacks(socket.socket, kCFSocketWriteCallBack);
        });
        RunUntilStopped();
        other.join();
        EXPECT_EQ(socket.calls, 1);
    });
}

TEST(CFSocket, Write_WhenThePeerReadsAtLast_Comes) {
    OnAFreshThread([] {
        Pair pair;
        char block[65536] = {};
        while (write(pair.near.Get(), block, sizeof block) > 0) {
        }
        Watched socket(pair.near.Get(), kReadAndWrite, [](auto&&...) { StopLoop(); });
        socket.AddToLoop();
        RunFor(20ms);
        EXPECT_EQ(socket.calls, 0);
        std::thread reader([&pair] {
            while (!ReadAll(pair.far.Get()).empty()) {
            }
        });
        RunUntilStopped();
        reader.join();
        EXPECT_EQ(socket.calls, 1);
    });
}

TEST(CFSocket, Write_ForAPeerThatHasGone_ComesThoughReadingIsDisabled) {
    OnAFreshThread([] {
        Pair pair;
        Watched socket(pair.near.Get(), kReadAndWrite,
                       [](Watched&, CFSocketCallBackType what, const void*) {
                           EXPECT_EQ(what, CFOptionFlags{kCFSocketWriteCallBack});
                           StopLoop();
                       });
        CFSocketDisableCallBacks(socket.socket, kCFSocketReadCallBack);
        socket.AddToLoop();
        pair.far.Close();
        RunUntilStopped();
        EXPECT_EQ(socket.calls, 1);
    });
}

// The kernel reports a hang-up even to those who asked for nothing.
TEST(CFSocket, Socket_WithEverythingDisabled_DoesNotKeepTheLoopBusyWhenThePeerGoes) {
    OnAFreshThread([] {
        Pair pair;
        Watched socket(pair.near.Get(), kReadAndWrite, [](auto&&...) {});
        CFSocketDisableCallBacks(socket.socket, kReadAndWrite);
        socket.AddToLoop();
        pair.far.Close();
        __CFRunLoop& loop = __CFRunLoop::Current();
        const std::uint64_t before = loop.Turns();
        RunFor(50ms);
        EXPECT_EQ(loop.Turns() - before, 1u);
        EXPECT_EQ(socket.calls, 0);
        CFSocketEnableCallBacks(socket.socket, kCFSocketReadCallBack);
        RunFor(1ms);
        EXPECT_GE(socket.calls, 1);
    });
}

TEST(CFSocket, ReadAndWrite_BothReady_ComeInThatOrder) {
    OnAFreshThread([] {
        Pair pair;
        std::vector<CFSocketCallBackType> order;
        Watched socket(pair.near.Get(), kReadAndWrite,
                       [&](Watched&, CFSocketCallBackType what, const void*) {
                           order.push_back(what);
                           ReadAll(pair.near.Get());
                       });
        EXPECT_EQ(write(pair.far.Get(), "x", 1), 1);
        socket.AddToLoop();
        RunFor(10ms);
        EXPECT_EQ(order, (std::vector<CFSocketCallBackType>{kCFSocketReadCallBack,
                                                            kCFSocketWriteCallBack}));
    });
}

TEST(CFSocket, Invalidate_InsideTheOwnCallback_EndsItAndKeepsTheContextUntilItReturns) {
    OnAFreshThread([] {
        Pair pair;
        Watched socket(pair.near.Get(), kReadAndWrite, [&pair](Watched& self, auto&&...) {
            // As the service does: first the descriptor, then the wrapper.
            pair.near.Close();
            CFSocketInvalidate(self.socket);
            EXPECT_EQ(self.releases, 0);
        });
        socket.AddToLoop();
        EXPECT_EQ(write(pair.far.Get(), "x", 1), 1);
        CFRunLoopRun();
        EXPECT_EQ(socket.calls, 1);
        EXPECT_EQ(socket.releases, 1);
    });
}

TEST(CFSocket, Invalidate_InsideTheOwnCallbackWithTheLastReferenceGone_IsFine) {
    OnAFreshThread([] {
        Pair pair;
        Cell cell;
        const CFSocketContext context = cell.Context();
        const CFSocketRef socket = CFSocketCreateWithNative(
            kCFAllocatorDefault, pair.near.Leak(), kCFSocketReadCallBack,
            [](CFSocketRef self, CFSocketCallBackType, CFDataRef, const void*, void* info) {
                CFSocketInvalidate(self);
                EXPECT_EQ(static_cast<Cell*>(info)->releases, 0);
            },
            &context);
        AddToLoop(socket);
        CFRelease(socket);
        EXPECT_EQ(write(pair.far.Get(), "x", 1), 1);
        CFRunLoopRun();
        EXPECT_EQ(cell.releases, 1);
    });
}

TEST(CFSocket, Invalidate_OfAnotherSocketInsideACallback_KeepsThatFromBeingTold) {
    OnAFreshThread([] {
        Pair one;
        Pair other;
        std::vector<std::unique_ptr<Watched>> sockets;
        int calls = 0;
        for (const Pair* pair : {&one, &other}) {
            sockets.push_back(
                std::make_unique<Watched>(pair->near.Get(), kCFSocketReadCallBack, [&](auto&&...) {
                    ++calls;
                    for (const auto& socket : sockets) {
                        CFSocketInvalidate(socket->socket);
                    }
                }));
            sockets.back()->AddToLoop();
            EXPECT_EQ(write(pair->far.Get(), "x", 1), 1);
        }
        CFRunLoopRun();
        EXPECT_EQ(calls, 1);
    });
}

TEST(CFSocket, Invalidate_OnAnotherThreadWhileTheCallbackRuns_KeepsTheContextUntilItReturns) {
    OnAFreshThread([] {
        Pair pair;
        Watched socket(pair.near.Get(), kCFSocketReadCallBack, [](Watched& self, auto&&...) {
            OnAFreshThread([&self] { CFSocketInvalidate(self.socket); });
            EXPECT_EQ(self.releases, 0);
        });
        socket.AddToLoop();
        EXPECT_EQ(write(pair.far.Get(), "x", 1), 1);
        CFRunLoopRun();
        EXPECT_EQ(socket.releases, 1);
    });
}

// Closes NEAR, and gives its number to the socket that is returned.
UniqueDescriptor ReuseNumber(Pair& closed, Pair& fresh) {
    const int number = closed.near.Leak();
    close(number);
    EXPECT_EQ(dup3(fresh.near.Get(), number, O_CLOEXEC), number);
    fresh.near.Close();
    // cppcheck-suppress deallocret ; dup3 has opened it again
    return UniqueDescriptor(number);
}

TEST(CFSocket, Create_ForAReusedNumber_ReplacesTheStaleWrapper) {
    for (const bool onAnotherLoop : {false, true}) {
        OnAFreshThread([onAnotherLoop] {
            Pair closed;
            Cell cell;
            const CFSocketContext context = cell.Context();
            const Owned<CFSocketRef> stale = CFSocketCreateWithNative(
                kCFAllocatorDefault, closed.near.Get(), kReadAndWrite,
                [](CFSocketRef, CFSocketCallBackType, CFDataRef, const void*, void*) {
                    ADD_FAILURE() << "the stale wrapper was served";
                },
                &context);
            CFSocketDisableCallBacks(stale, kCFSocketWriteCallBack);
            AddToLoop(stale);
            Pair fresh;
            const UniqueDescriptor reused = ReuseNumber(closed, fresh);
            const auto serve = [&] {
                Watched socket(reused.Get(), kCFSocketReadCallBack, [](auto&&...) { StopLoop(); });
                EXPECT_NE(socket.socket, static_cast<CFSocketRef>(stale));
                EXPECT_EQ(cell.releases, 1);
                socket.AddToLoop();
                // Too late: it must not come back to life on the new socket.
                CFSocketEnableCallBacks(stale, kReadAndWrite);
                EXPECT_EQ(write(fresh.far.Get(), "x", 1), 1);
                RunUntilStopped();
                EXPECT_EQ(socket.calls, 1);
            };
            if (onAnotherLoop) {
                OnAFreshThread(serve);
            } else {
                serve();
            }
            EXPECT_TRUE(looptest::IsOpen(reused.Get()));
            EXPECT_EQ(CFSocketCreateRunLoopSource(kCFAllocatorDefault, stale, 0), nullptr);
        });
    }
}

TEST(CFSocket, StaleWrapper_ThatIsEnabledOrAdded_DoesNotServeTheNewOwnerOfItsNumber) {
    OnAFreshThread([] {
        Pair closed;
        Pair fresh;
        Watched stale(closed.near.Get(), kReadAndWrite,
                      [](auto&&...) { ADD_FAILURE() << "the stale wrapper was served"; });
        CFSocketDisableCallBacks(stale.socket, kReadAndWrite);
        stale.AddToLoop();
        const UniqueDescriptor reused = ReuseNumber(closed, fresh);
        EXPECT_EQ(write(fresh.far.Get(), "x", 1), 1);
        CFSocketEnableCallBacks(stale.socket, kReadAndWrite);
        RunFor(10ms);
    });
}

TEST(CFSocket, NumbersThatAreReusedAgainAndAgain_LeaveNoWrappersBehind) {
    Cell cell;
    OnAFreshThread([&cell] {
        const CFSocketContext context = cell.Context();
        constexpr int kTimes = 1000;
        for (int time = 0; time < kTimes; ++time) {
            Pair pair;
            const Owned<CFSocketRef> socket =
                Wrap(pair.near.Get(), kCFSocketReadCallBack, &context);
            KeepOpen(socket);
            AddToLoop(socket);
        }
        // The two numbers of a pair are taken in turn at the most.
        EXPECT_GE(cell.releases, kTimes - 2);
    });
    EXPECT_EQ(cell.releases, cell.retains);
}

TEST(CFSocket, ThreadEnds_WithSocketsOnItsLoop_ReleasesThemAndClosesNothing) {
    Pair pair;
    Cell cell;
    const CFSocketContext context = cell.Context();
    OnAFreshThread([&] {
        const Owned<CFSocketRef> socket = Wrap(pair.near.Get(), kCFSocketReadCallBack, &context);
        AddToLoop(socket);
    });
    EXPECT_EQ(cell.releases, 1);
    EXPECT_TRUE(looptest::IsOpen(pair.near.Get()));
}

TEST(CFSocket, Loop_KeepsSocketAndSourceUntilInvalidated) {
    OnAFreshThread([] {
        Pair pair;
        Cell cell;
        const CFSocketContext context = cell.Context();
        const CFSocketRef socket = CFSocketCreateWithNative(
            kCFAllocatorDefault, pair.near.Leak(), kCFSocketReadCallBack,
            [](CFSocketRef self, CFSocketCallBackType, CFDataRef, const void*, void*) {
                CFSocketInvalidate(self);
            },
            &context);
        AddToLoop(socket);
        CFRelease(socket);
        EXPECT_EQ(cell.releases, 0);
        EXPECT_EQ(write(pair.far.Get(), "x", 1), 1);
        CFRunLoopRun();
        EXPECT_EQ(cell.releases, 1);
    });
}

TEST(CFSocket, Accept_HandsOverANonBlockingCloseOnExecSocketAndItsPeersAddress) {
    OnAFreshThread([] {
        const Listener listener;
        const UniqueDescriptor client = listener.Connect();
        sockaddr_in expected{};
        socklen_t length = sizeof expected;
        ASSERT_EQ(getsockname(client.Get(), reinterpret_cast<sockaddr*>(&expected), &length), 0);
        const CFSocketContext context{0, &expected, nullptr, nullptr, nullptr};
        const Owned<CFSocketRef> socket = CFSocketCreateWithNative(
            kCFAllocatorDefault, listener.socket.Get(), kCFSocketAcceptCallBack,
            [](CFSocketRef, CFSocketCallBackType what, CFDataRef address, const void* data,
               void* info) {
                EXPECT_EQ(what, CFOptionFlags{kCFSocketAcceptCallBack});
                const UniqueDescriptor accepted(*static_cast<const CFSocketNativeHandle*>(data));
                EXPECT_NE(fcntl(accepted.Get(), F_GETFL) & O_NONBLOCK, 0);
                EXPECT_NE(fcntl(accepted.Get(), F_GETFD) & FD_CLOEXEC, 0);
                ASSERT_EQ(CFDataGetLength(address), CFIndex{sizeof(sockaddr_in)});
                EXPECT_EQ(std::memcmp(CFDataGetBytePtr(address), info, sizeof(sockaddr_in)), 0);
                StopLoop();
            },
            &context);
        CFSocketSetSocketFlags(socket, kCFSocketAutomaticallyReenableAcceptCallBack);
        AddToLoop(socket);
        RunUntilStopped();
        CFSocketInvalidate(socket);
    });
}

TEST(CFSocket, Accept_OfManyAtOnce_HandsOverEach) {
    OnAFreshThread([] {
        const Listener listener;
        std::vector<UniqueDescriptor> clients;
        std::vector<UniqueDescriptor> accepted;
        for (int count = 0; count < 100; ++count) {
            clients.push_back(listener.Connect());
        }
        Watched socket(listener.socket.Get(), kCFSocketAcceptCallBack,
                       [&](Watched&, CFSocketCallBackType, const void* data) {
                           accepted.emplace_back(*static_cast<const int*>(data));
                           if (accepted.size() == clients.size()) StopLoop();
                       });
        socket.AddToLoop();
        RunUntilStopped();
        EXPECT_EQ(socket.calls, 100);
    });
}

TEST(CFSocket, Accept_OnAListenerThatBlocks_NeverBlocksTheLoop) {
    const Listener listener;
    EXPECT_EQ(fcntl(listener.socket.Get(), F_GETFL) & O_NONBLOCK, 0);
    const Owned<CFSocketRef> socket = Wrap(listener.socket.Get(), kCFSocketAcceptCallBack);
    CFSocketSetSocketFlags(socket, 0);
    EXPECT_NE(fcntl(listener.socket.Get(), F_GETFL) & O_NONBLOCK, 0);
}

TEST(CFSocket, Accept_Disabled_LeavesConnectionsWaiting) {
    OnAFreshThread([] {
        const Listener listener;
        const UniqueDescriptor client = listener.Connect();
        Watched socket(listener.socket.Get(), kCFSocketAcceptCallBack,
                       [](Watched&, CFSocketCallBackType, const void* data) {
                           close(*static_cast<const int*>(data));
                           StopLoop();
                       });
        CFSocketDisableCallBacks(socket.socket, kCFSocketAcceptCallBack);
        socket.AddToLoop();
        RunFor(10ms);
        EXPECT_EQ(socket.calls, 0);
        CFSocketEnableCallBacks(socket.socket, kCFSocketAcceptCallBack);
        RunUntilStopped();
        EXPECT_EQ(socket.calls, 1);
    });
}

TEST(CFSocket, Accept_InvalidatedInItsCallback_AcceptsNoMore) {
    OnAFreshThread([] {
        const Listener listener;
        const UniqueDescriptor one = listener.Connect();
        const UniqueDescriptor other = listener.Connect();
        Watched socket(listener.socket.Get(), kCFSocketAcceptCallBack,
                       [](Watched& self, CFSocketCallBackType, const void* data) {
                           close(*static_cast<const int*>(data));
                           CFSocketInvalidate(self.socket);
                       });
        socket.AddToLoop();
        CFRunLoopRun();
        EXPECT_EQ(socket.calls, 1);
    });
}

// Takes every descriptor that the process may still have, and gives them back at its end.
class NoDescriptors {
  public:
    NoDescriptors() {
        EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
        rlimit few = before;
        few.rlim_cur = 200;
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
        for (;;) {
            UniqueDescriptor taken(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0));
            if (!taken.IsOpen()) break;
            all.push_back(std::move(taken));
        }
    }
    ~NoDescriptors() { EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0); }

    void GiveBackSome() { all.resize(all.size() - 10); }

  private:
    rlimit before;
    std::vector<UniqueDescriptor> all;
};

TEST(CFSocket, Accept_WithoutDescriptors_WaitsWithoutSpinningAndRecoversByItself) {
    OnAFreshThread([] {
        const Listener listener;
        const UniqueDescriptor client = listener.Connect();
        Pair pair;
        Watched reads(pair.near.Get(), kCFSocketReadCallBack,
                      [&pair](auto&&...) { ReadAll(pair.near.Get()); });
        reads.AddToLoop();
        Watched accepts(listener.socket.Get(), kCFSocketAcceptCallBack,
                        [](Watched&, CFSocketCallBackType, const void* data) {
                            close(*static_cast<const int*>(data));
                            StopLoop();
                        });
        accepts.AddToLoop();
        NoDescriptors none;
        __CFRunLoop& loop = __CFRunLoop::Current();
        const std::uint64_t before = loop.Turns();
        // Longer than several pauses.
        RunFor(450ms);
        EXPECT_EQ(accepts.calls, 0);
        // Each pause costs its end and one attempt.
        EXPECT_LE(loop.Turns() - before, 12u);
        // Those who have their descriptors are served all the same.
        EXPECT_EQ(write(pair.far.Get(), "x", 1), 1);
        RunFor(10ms);
        EXPECT_EQ(reads.calls, 1);
        none.GiveBackSome();
        RunUntilStopped();
        EXPECT_EQ(accepts.calls, 1);
    });
}

TEST(CFSocket, Accept_OnAListenerThatWasShutDown_DoesNotSpin) {
    OnAFreshThread([] {
        const Listener listener;
        Watched accepts(listener.socket.Get(), kCFSocketAcceptCallBack, [](auto&&...) {});
        accepts.AddToLoop();
        EXPECT_EQ(shutdown(listener.socket.Get(), SHUT_RDWR), 0);
        __CFRunLoop& loop = __CFRunLoop::Current();
        const std::uint64_t before = loop.Turns();
        RunFor(250ms);
        EXPECT_LE(loop.Turns() - before, 8u);
    });
}

TEST(CFSocket, AThousandSockets_AreAllServed) {
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    rlimit many = before;
    many.rlim_cur = std::min<rlim_t>(before.rlim_max, 4096);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &many), 0);
    OnAFreshThread([] {
        constexpr int kSockets = 1000;
        constexpr int kRounds = 3;
        std::vector<Pair> pairs(kSockets);
        std::vector<std::unique_ptr<Watched>> sockets;
        int heard = 0;
        for (Pair& pair : pairs) {
            sockets.push_back(std::make_unique<Watched>(
                pair.near.Get(), kCFSocketReadCallBack, [&heard, &pair](auto&&...) {
                    heard += static_cast<int>(ReadAll(pair.near.Get()).size());
                    if (heard == kSockets * kRounds) StopLoop();
                }));
            sockets.back()->AddToLoop();
        }
        for (int round = 0; round < kRounds; ++round) {
            for (const Pair& pair : pairs) {
                EXPECT_EQ(write(pair.far.Get(), "x", 1), 1);
            }
        }
        RunUntilStopped();
        EXPECT_EQ(heard, kSockets * kRounds);
    });
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
}

// Two loops that accept, serve and end connections as fast as they can, sharing one range of
// numbers: every byte must arrive with the one that it was sent to.
TEST(CFSocket, TwoLoopsSharingNumbers_NeverMixUpTheirConnections) {
    constexpr int kConnections = 300;
    std::atomic<int> wrong{0};
    const auto serveAll = [&wrong](char mark) {
        const Listener listener;
        struct Connection {
            int native;
            char mark;
            std::atomic<int>* wrong;
            int* ended;
        };
        int ended = 0;
        const auto heard = [](CFSocketRef self, CFSocketCallBackType, CFDataRef, const void*,
                              void* info) {
            const Connection connection = *static_cast<Connection*>(info);
            char bytes[16];
            const ssize_t length = read(connection.native, bytes, sizeof bytes);
            if (length > 0) {
                if (bytes[0] != connection.mark) ++*connection.wrong;
                return;
            }
            close(connection.native);
            CFSocketInvalidate(self);
            if (++*connection.ended == kConnections) StopLoop();
        };
        Watched accepts(
            listener.socket.Get(), kCFSocketAcceptCallBack,
            [&](Watched&, CFSocketCallBackType, const void* data) {
                const int native = *static_cast<const int*>(data);
                CFSocketContext context{
                    0, new Connection{native, mark, &wrong, &ended}, nullptr,
                    [](const void* info) { delete static_cast<const Connection*>(info); }, nullptr};
                const Owned<CFSocketRef> socket = CFSocketCreateWithNative(
                    kCFAllocatorDefault, native, kCFSocketReadCallBack, heard, &context);
                KeepOpen(socket);
                AddToLoop(socket);
            });
        accepts.AddToLoop();
        std::thread clients([&listener, mark] {
            for (int count = 0; count < kConnections; ++count) {
                const UniqueDescriptor client = listener.Connect();
                EXPECT_EQ(send(client.Get(), &mark, 1, MSG_NOSIGNAL), 1);
            }
        });
        RunUntilStopped();
        clients.join();
    };
    std::thread one([&serveAll] { serveAll('1'); });
    std::thread two([&serveAll] { serveAll('2'); });
    one.join();
    two.join();
    EXPECT_EQ(wrong.load(), 0);
}

TEST(CFSocketDeathTest, Callback_ThatThrows_EndsTheProgram) {
    Pair pair;
    EXPECT_DEATH(
        {
            Watched socket(pair.near.Get(), kCFSocketReadCallBack,
                           [](auto&&...) { throw std::runtime_error("out of a callback"); });
            socket.AddToLoop();
            EXPECT_EQ(write(pair.far.Get(), "x", 1), 1);
            CFRunLoopRun();
        },
        "out of a callback");
}

TEST(CFSocketDeathTest, Invalidate_OfAnotherType_Stops) {
    EXPECT_DEATH(CFSocketInvalidate(reinterpret_cast<CFSocketRef>(CFRunLoopGetCurrent())),
                 "CFSocketInvalidate: expected a CFSocket, got a CFRunLoop");
}

}  // namespace
