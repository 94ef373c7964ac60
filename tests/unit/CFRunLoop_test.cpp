#include <CoreFoundation/CFRunLoop.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/resource.h>

#include <atomic>
#include <future>
#include <vector>

#include "RunLoopTesting.h"

namespace {

using namespace looptest;
using namespace std::chrono_literals;

// Told what its descriptor is ready for.
class Ear final : public __CFRunLoopSource {
  public:
    Ear(int itsDescriptor, std::function<void(Ear&, std::uint32_t)> itsWork,
        std::uint32_t events = EPOLLIN)
        : __CFRunLoopSource(itsDescriptor, frameworks::IdentityOf(itsDescriptor), events),
          work(std::move(itsWork)) {}

    static Ref<Ear> On(CFRunLoopRef loop, int itsDescriptor,
                       std::function<void(Ear&, std::uint32_t)> work,
                       std::uint32_t events = EPOLLIN) {
        auto ear = Ref<Ear>::Adopt(new Ear(itsDescriptor, std::move(work), events));
        CFRunLoopAddSource(loop, ear.Get(), kCFRunLoopDefaultMode);
        return ear;
    }

  private:
    void Ready(std::uint32_t events) override { work(*this, events); }

    const std::function<void(Ear&, std::uint32_t)> work;
};

struct Observed {
    std::vector<CFRunLoopActivity> activities;
    std::function<void()> work = [] {};
    int releases = 0;

    static void Told(CFRunLoopObserverRef, CFRunLoopActivity activity, void* info) {
        auto& self = *static_cast<Observed*>(info);
        self.activities.push_back(activity);
        self.work();
    }
    static void CountRelease(const void* info) {
        ++static_cast<Observed*>(const_cast<void*>(info))->releases;
    }

    void Observe(CFOptionFlags activities_, bool repeats, CFIndex order = 0) {
        // One that repeats is released when the thread ends, which this object does not live to
        // see.
        CFRunLoopObserverContext context{0, this, nullptr, repeats ? nullptr : CountRelease,
                                         nullptr};
        const Owned<CFRunLoopObserverRef> observer = CFRunLoopObserverCreate(
            kCFAllocatorDefault, activities_, repeats, order, Told, &context);
        CFRunLoopAddObserver(CFRunLoopGetCurrent(), observer, kCFRunLoopCommonModes);
    }
};

TEST(CFRunLoop, GetCurrent_IsOnePerThread) {
    const CFRunLoopRef here = CFRunLoopGetCurrent();
    EXPECT_EQ(CFRunLoopGetCurrent(), here);
    OnAFreshThread([here] { EXPECT_NE(CFRunLoopGetCurrent(), here); });
}

TEST(CFRunLoop, GetCurrent_OnTheMainThread_IsTheMainLoop) {
    OnAFreshThread([] { EXPECT_NE(&__CFRunLoop::Main(), &__CFRunLoop::Current()); });
    EXPECT_EQ(&__CFRunLoop::Main(), &__CFRunLoop::Current());
}

TEST(CFRunLoop, Run_WithoutSources_ReturnsAtOnceAndTellsNobody) {
    OnAFreshThread([] {
        Observed observed;
        observed.Observe(kCFRunLoopEntry | kCFRunLoopBeforeWaiting, true);
        CFRunLoopRun();
        EXPECT_TRUE(observed.activities.empty());
    });
}

TEST(CFRunLoop, Run_WhenTheLastSourceGoes_Returns) {
    OnAFreshThread([] {
        Pair pair;
        const auto ear = Ear::On(CFRunLoopGetCurrent(), pair.near.Get(),
                                 [](Ear& self, std::uint32_t) { self.Invalidate(); });
        EXPECT_EQ(write(pair.far.Get(), "x", 1), 1);
        CFRunLoopRun();
    });
}

TEST(CFRunLoop, Run_WhenTheLastSourceIsInvalidatedOnAnotherThread_Returns) {
    OnAFreshThread([] {
        Pair pair;
        const auto ear =
            Ear::On(CFRunLoopGetCurrent(), pair.near.Get(), [](Ear&, std::uint32_t) {});
        Observed observed;
        std::promise<void> waiting;
        observed.work = [&waiting] { waiting.set_value(); };
        observed.Observe(kCFRunLoopBeforeWaiting, false);
        std::thread other([&] {
            waiting.get_future().wait();
            ear->Invalidate();
        });
        CFRunLoopRun();
        other.join();
    });
}

TEST(CFRunLoop, Stop_FromAnotherThreadWhileWaiting_Returns) {
    OnAFreshThread([] {
        Pair pair;
        Watched silent(pair.near.Get(), kCFSocketReadCallBack, [](auto&&...) {});
        silent.AddToLoop();
        const CFRunLoopRef loop = CFRunLoopGetCurrent();
        std::thread other([loop, thread = gettid()] {
            WaitUntilAsleep(thread);
            CFRunLoopStop(loop);
        });
        CFRunLoopRun();
        other.join();
    });
}

// Stopped between entering and waiting, a loop that looks only at what wakes it would wait for
// ever.
TEST(CFRunLoop, Stop_FromAnotherThreadBetweenEntryAndTheWait_IsNotLost) {
    OnAFreshThread([] {
        Pair pair;
        Watched silent(pair.near.Get(), kCFSocketReadCallBack, [](auto&&...) {});
        silent.AddToLoop();
        const CFRunLoopRef loop = CFRunLoopGetCurrent();
        for (const CFRunLoopActivity moment : {kCFRunLoopEntry, kCFRunLoopBeforeWaiting}) {
            Observed observed;
            observed.work = [loop] { OnAFreshThread([loop] { CFRunLoopStop(loop); }); };
            observed.Observe(moment, false);
            CFRunLoopRun();
            EXPECT_EQ(observed.activities.size(), 1u);
        }
    });
}

TEST(CFRunLoop, Stop_ManyTimesFromAnotherThread_EndsEveryRunThatWasEntered) {
    OnAFreshThread([] {
        Pair pair;
        Watched silent(pair.near.Get(), kCFSocketReadCallBack, [](auto&&...) {});
        silent.AddToLoop();
        const CFRunLoopRef loop = CFRunLoopGetCurrent();
        std::atomic<int> entered{0};
        Observed observed;
        observed.work = [&entered] { ++entered; };
        observed.Observe(kCFRunLoopEntry, true);
        constexpr int kRuns = 2000;
        std::thread other([&] {
            for (int run = 1; run <= kRuns; ++run) {
                while (entered.load() < run) {
                    std::this_thread::yield();
                }
                CFRunLoopStop(loop);
            }
        });
        for (int run = 0; run < kRuns; ++run) {
            CFRunLoopRun();
        }
        other.join();
        EXPECT_EQ(entered.load(), kRuns);
    });
}

TEST(CFRunLoop, Stop_BeforeTheLoopIsEntered_IsForgotten) {
    OnAFreshThread([] {
        Pair pair;
        int calls = 0;
        Watched socket(pair.near.Get(), kCFSocketReadCallBack, [&calls](auto&&...) {
            ++calls;
            StopLoop();
        });
        socket.AddToLoop();
        EXPECT_EQ(write(pair.far.Get(), "x", 1), 1);
        CFRunLoopStop(CFRunLoopGetCurrent());
        RunUntilStopped();
        EXPECT_EQ(calls, 1);
    });
}

TEST(CFRunLoop, Stop_InARunInsideACallback_EndsTheInnerRunOnly) {
    OnAFreshThread([] {
        std::vector<std::string> order;
        Alarm::Set(1ms, [&order] {
            Alarm::Set(1ms, [&order] {
                order.push_back("inner");
                StopLoop();
            });
            CFRunLoopRun();
            order.push_back("inner run ended");
            Alarm::Set(1ms, [&order] {
                order.push_back("outer");
                StopLoop();
            });
        });
        RunUntilStopped();
        EXPECT_EQ(order, (std::vector<std::string>{"inner", "inner run ended", "outer"}));
    });
}

TEST(CFRunLoop, Stop_OfALoopWhoseThreadHasEnded_DoesNothing) {
    CFRunLoopRef loop = nullptr;
    OnAFreshThread([&loop] {
        loop = CFRunLoopGetCurrent();
        CFRetain(loop);
    });
    CFRunLoopStop(loop);
    CFRelease(loop);
}

TEST(CFRunLoop, Observers_AreToldOfEntryAndBeforeEveryWaitInTheirOrder) {
    OnAFreshThread([] {
        std::vector<std::string> order;
        Observed second;
        second.work = [&order] { order.push_back("second"); };
        second.Observe(kCFRunLoopEntry | kCFRunLoopBeforeWaiting, true, 2);
        Observed first;
        first.work = [&order] { order.push_back("first"); };
        first.Observe(kCFRunLoopEntry, true, 1);
        Alarm::Set(1ms, [&order] {
            order.push_back("event");
            StopLoop();
        });
        CFRunLoopRun();
        EXPECT_EQ(order, (std::vector<std::string>{"first", "second", "second", "event"}));
        EXPECT_EQ(second.activities,
                  (std::vector<CFRunLoopActivity>{kCFRunLoopEntry, kCFRunLoopBeforeWaiting}));
    });
}

TEST(CFRunLoop, Observer_ThatDoesNotRepeat_IsToldOnceAndReleased) {
    OnAFreshThread([] {
        Observed observed;
        observed.Observe(kCFRunLoopEntry | kCFRunLoopBeforeWaiting, false);
        EXPECT_EQ(observed.releases, 0);
        RunFor(1ms);
        EXPECT_EQ(observed.activities, (std::vector<CFRunLoopActivity>{kCFRunLoopEntry}));
        EXPECT_EQ(observed.releases, 1);
        RunFor(1ms);
        EXPECT_EQ(observed.activities.size(), 1u);
    });
}

TEST(CFRunLoop, Observer_ThatAddsAnother_IsFine) {
    OnAFreshThread([] {
        Observed added;
        Observed observed;
        observed.work = [&added] { added.Observe(kCFRunLoopEntry, true); };
        observed.Observe(kCFRunLoopEntry, false);
        RunFor(1ms);
        EXPECT_EQ(added.activities.size(), 1u);
    });
}

TEST(CFRunLoop, WhenIdle_DoesNotWakeUp) {
    OnAFreshThread([] {
        Pair pair;
        Watched silent(pair.near.Get(), kCFSocketReadCallBack | kCFSocketWriteCallBack,
                       [](auto&&...) {});
        CFSocketDisableCallBacks(silent.socket, kCFSocketWriteCallBack);
        silent.AddToLoop();
        __CFRunLoop& loop = __CFRunLoop::Current();
        const std::uint64_t before = loop.Turns();
        RunFor(300ms);
        // The one that the test's own alarm takes.
        EXPECT_EQ(loop.Turns() - before, 1u);
    });
}

TEST(CFRunLoop, AddSource_OnAnotherThreadWhileWaiting_IsServed) {
    OnAFreshThread([] {
        Pair silent;
        Pair late;
        Watched keeps(silent.near.Get(), kCFSocketReadCallBack, [](auto&&...) {});
        keeps.AddToLoop();
        Watched socket(late.near.Get(), kCFSocketReadCallBack, [](auto&&...) { StopLoop(); });
        const CFRunLoopRef loop = CFRunLoopGetCurrent();
        std::thread other([&, thread = gettid()] {
            WaitUntilAsleep(thread);
            socket.AddToLoop(loop);
            EXPECT_EQ(write(late.far.Get(), "x", 1), 1);
        });
        RunUntilStopped();
        other.join();
        EXPECT_EQ(socket.calls, 1);
    });
}

TEST(CFRunLoop, CallAfter_OnAnotherThreadWhileWaiting_IsServed) {
    OnAFreshThread([] {
        Pair pair;
        Watched silent(pair.near.Get(), kCFSocketReadCallBack, [](auto&&...) {});
        silent.AddToLoop();
        const auto alarm = Alarm::Set(std::chrono::hours(1), [] { StopLoop(); });
        std::thread other([&alarm, thread = gettid()] {
            WaitUntilAsleep(thread);
            alarm->CallAfter(1ms);
        });
        RunUntilStopped();
        other.join();
    });
}

TEST(CFRunLoop, Deadlines_ComeInTheirOrderAndNotEarly) {
    OnAFreshThread([] {
        std::vector<int> order;
        const auto begin = std::chrono::steady_clock::now();
        Alarm::Set(30ms, [&order] {
            order.push_back(30);
            StopLoop();
        });
        Alarm::Set(10ms, [&order] { order.push_back(10); });
        Alarm::Set(20ms, [&order] { order.push_back(20); });
        CFRunLoopRun();
        EXPECT_EQ(order, (std::vector<int>{10, 20, 30}));
        EXPECT_GE(std::chrono::steady_clock::now() - begin, 30ms);
    });
}

// A loop that was late served them in the order in which they were set.
TEST(CFRunLoop, Deadlines_ThatHaveAllPassed_ComeInTheirOrder) {
    OnAFreshThread([] {
        std::vector<int> order;
        // Far apart, so that it does not matter how long it takes to set them.
        Alarm::Set(101ms, [&order] {
            order.push_back(101);
            StopLoop();
        });
        Alarm::Set(51ms, [&order] { order.push_back(51); });
        Alarm::Set(1ms, [&order] { order.push_back(1); });
        // Not for an event: time has to pass.
        std::this_thread::sleep_for(110ms);
        CFRunLoopRun();
        EXPECT_EQ(order, (std::vector<int>{1, 51, 101}));
    });
}

TEST(CFRunLoop, Deadline_SetAnewInsideItself_LetsEventsThrough) {
    OnAFreshThread([] {
        Pair pair;
        Watched socket(pair.near.Get(), kCFSocketReadCallBack, [](auto&&...) { StopLoop(); });
        socket.AddToLoop();
        // Due again as soon as it is set.
        struct Eager final : __CFRunLoopSource {
            Eager() : __CFRunLoopSource(-1, std::nullopt, 0) {}
            void TimedOut() override { CallAfter(0ms); }
        };
        const auto eager = Ref<Eager>::Adopt(new Eager());
        CFRunLoopAddSource(CFRunLoopGetCurrent(), eager.Get(), kCFRunLoopDefaultMode);
        eager->CallAfter(0ms);
        EXPECT_EQ(write(pair.far.Get(), "x", 1), 1);
        RunUntilStopped();
        EXPECT_EQ(socket.calls, 1);
        eager->Invalidate();
    });
}

TEST(CFRunLoop, Deadline_WhenDescriptorsHaveRunOut_StillComes) {
    OnAFreshThread([] {
        CFRunLoopGetCurrent();
        rlimit before;
        ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
        rlimit none = before;
        none.rlim_cur = 3;
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
        EXPECT_EQ(dup(0), -1);
        bool came = false;
        Alarm::Set(1ms, [&came] {
            came = true;
            StopLoop();
        });
        CFRunLoopRun();
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
        EXPECT_TRUE(came);
    });
}

TEST(CFRunLoop, Source_ThatInvalidatesAnotherOneOfTheSameBatch_KeepsItFromBeingServed) {
    OnAFreshThread([] {
        std::vector<Pair> pairs(10);
        std::vector<Ref<Ear>> ears;
        int served = 0;
        for (const Pair& pair : pairs) {
            ears.push_back(
                Ear::On(CFRunLoopGetCurrent(), pair.near.Get(), [&](Ear&, std::uint32_t) {
                    ++served;
                    for (const Ref<Ear>& ear : ears) {
                        ear->Invalidate();
                    }
                }));
            EXPECT_EQ(write(pair.far.Get(), "x", 1), 1);
        }
        CFRunLoopRun();
        EXPECT_EQ(served, 1);
    });
}

TEST(CFRunLoop, Source_ThatReplacesAnotherOneOfTheSameBatchInItsSlot_DoesNotPassTheEventOn) {
    OnAFreshThread([] {
        Pair one;
        Pair other;
        Pair silent;
        std::vector<Ref<Ear>> ears;
        Ref<Ear> newcomer;
        int servedNewcomer = 0;
        // Whichever of the two is served first takes the other one's slot for the silent one.
        const auto replaceOther = [&](Ear& self, std::uint32_t) {
            for (const Ref<Ear>& ear : ears) {
                if (ear.Get() != &self) {
                    ear->Invalidate();
                }
            }
            newcomer = Ear::On(CFRunLoopGetCurrent(), silent.near.Get(),
                               [&servedNewcomer](Ear&, std::uint32_t) { ++servedNewcomer; });
            self.Invalidate();
            Alarm::Set(20ms, [] { StopLoop(); });
        };
        for (const Pair* pair : {&one, &other}) {
            ears.push_back(Ear::On(CFRunLoopGetCurrent(), pair->near.Get(), replaceOther));
            EXPECT_EQ(write(pair->far.Get(), "x", 1), 1);
        }
        RunUntilStopped();
        EXPECT_EQ(servedNewcomer, 0);
    });
}

TEST(CFRunLoop, Signals_DoNotEndTheWait) {
    OnAFreshThread([] {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        struct sigaction before;
        ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
        Pair pair;
        Watched socket(pair.near.Get(), kCFSocketReadCallBack, [](auto&&...) { StopLoop(); });
        socket.AddToLoop();
        const pthread_t waiting = pthread_self();
        std::thread other([&pair, waiting, thread = gettid()] {
            for (int count = 0; count < 50; ++count) {
                WaitUntilAsleep(thread);
                pthread_kill(waiting, SIGUSR1);
            }
            EXPECT_EQ(write(pair.far.Get(), "x", 1), 1);
        });
        RunUntilStopped();
        other.join();
        EXPECT_EQ(socket.calls, 1);
        EXPECT_EQ(sigaction(SIGUSR1, &before, nullptr), 0);
    });
}

// The descriptor is closed here while a copy lives on: the kernel goes on reporting it, and nobody
// can tell it not to.
TEST(CFRunLoop, Descriptor_ThatWasClosedButLivesOnElsewhere_DoesNotKeepTheLoopBusy) {
    OnAFreshThread([] {
        Pair pair;
        Pair silent;
        const auto ear = Ear::On(CFRunLoopGetCurrent(), pair.near.Get(),
                                 [](Ear&, std::uint32_t) { FAIL() << "served"; });
        Watched other(silent.near.Get(), kCFSocketReadCallBack, [](auto&&...) { StopLoop(); });
        other.AddToLoop();
        const UniqueDescriptor copy(dup(pair.near.Get()));
        pair.near.Close();
        ear->Invalidate();
        EXPECT_EQ(write(pair.far.Get(), "x", 1), 1);
        __CFRunLoop& loop = __CFRunLoop::Current();
        const std::uint64_t before = loop.Turns();
        RunFor(100ms);
        EXPECT_LT(loop.Turns() - before, 40u);
        // The set that took the old one's place watches the others as before.
        EXPECT_EQ(write(silent.far.Get(), "x", 1), 1);
        RunUntilStopped();
        EXPECT_EQ(other.calls, 1);
    });
}

TEST(CFRunLoop, ThreadEnds_WithSourcesOnItsLoop_LetsGoOfThem) {
    Pair pair;
    Ref<Ear> ear;
    OnAFreshThread(
        [&] { ear = Ear::On(CFRunLoopGetCurrent(), pair.near.Get(), [](Ear&, std::uint32_t) {}); });
    // It can be served elsewhere.
    OnAFreshThread([&] {
        int served = 0;
        const auto moved =
            Ear::On(CFRunLoopGetCurrent(), pair.near.Get(), [&served](Ear& self, std::uint32_t) {
                ++served;
                self.Invalidate();
            });
        ear->SetInterest(0);
        EXPECT_EQ(write(pair.far.Get(), "x", 1), 1);
        CFRunLoopRun();
        EXPECT_EQ(served, 1);
    });
}

TEST(CFRunLoop, SetInterest_FromAnotherThread_TakesEffectWhileTheLoopWaits) {
    OnAFreshThread([] {
        Pair pair;
        const auto ear = Ear::On(
            CFRunLoopGetCurrent(), pair.near.Get(),
            [](Ear& self, std::uint32_t events) {
                EXPECT_NE(events & EPOLLOUT, 0u);
                self.Invalidate();
            },
            EPOLLIN);
        std::thread other([&ear, thread = gettid()] {
            WaitUntilAsleep(thread);
            ear->SetInterest(EPOLLIN | EPOLLOUT);
        });
        CFRunLoopRun();
        other.join();
    });
}

TEST(CFRunLoop, AddSource_Twice_IsServedOnce) {
    OnAFreshThread([] {
        Pair pair;
        Watched socket(pair.near.Get(), kCFSocketReadCallBack, [&pair](auto&&...) {
            ReadAll(pair.near.Get());
            Alarm::Set(10ms, [] { StopLoop(); });
        });
        socket.AddToLoop();
        socket.AddToLoop();
        EXPECT_EQ(write(pair.far.Get(), "x", 1), 1);
        RunUntilStopped();
        EXPECT_EQ(socket.calls, 1);
    });
}

using CFRunLoopDeathTest = ::testing::Test;

TEST(CFRunLoopDeathTest, AddSource_ToASecondLoop_Stops) {
    Pair pair;
    EXPECT_DEATH(
        {
            const auto ear =
                Ear::On(CFRunLoopGetCurrent(), pair.near.Get(), [](Ear&, std::uint32_t) {});
            OnAFreshThread([&ear] {
                CFRunLoopAddSource(CFRunLoopGetCurrent(), ear.Get(), kCFRunLoopDefaultMode);
            });
        },
        "CFRunLoopAddSource: the source is on another run loop");
}

TEST(CFRunLoopDeathTest, AddSource_InAnotherMode_Stops) {
    Pair pair;
    EXPECT_DEATH(
        {
            const auto ear = Ref<Ear>::Adopt(new Ear(pair.near.Get(), [](Ear&, std::uint32_t) {}));
            CFRunLoopAddSource(CFRunLoopGetCurrent(), ear.Get(), CFSTR("a mode of its own"));
        },
        "CFRunLoopAddSource: there is no run loop mode but the default one");
}

TEST(CFRunLoopDeathTest, Stop_OfNothing_Stops) {
    EXPECT_DEATH(CFRunLoopStop(nullptr), "CFRunLoopStop: expected a CFRunLoop, got a null");
}

}  // namespace
