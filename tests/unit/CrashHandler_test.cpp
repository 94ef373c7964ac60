#include "core/CrashHandler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "core/Helpers.h"
#include "unit/support/ForkedTest.h"
#include "unit/support/Sanitizers.h"
#include "unit/support/Waiting.h"

using testing::ElementsAre;

namespace {

constexpr char kFirstLine[] = "[CRASH] Program terminated unexpectedly. Signal:";
constexpr char kNoFile[] = "Logfile does not exist, not logging";

// What SIGNAL does is done on another thread: to be called where nothing else is left to do.
[[noreturn]] void WaitForTheEnd() {
    for (;;) {
        pause();
    }
}

class Signals : public testing::TestWithParam<int> {};

INSTANTIATE_TEST_SUITE_P(CrashHandler, Signals,
                         testing::Values(SIGABRT, SIGFPE, SIGILL, SIGINT, SIGSEGV, SIGTERM));

TEST_P(Signals, LeaveTwoLinesInTheLogAndStatusOne) {
    const int signal = GetParam();
    const Outcome outcome = RunForked([signal] {
        CrashHandler::Init();
        kill(getpid(), signal);
        WaitForTheEnd();
    });
    EXPECT_EQ(1, outcome.status);
    EXPECT_THAT(Lines(outcome.output), ElementsAre(kNoFile, kFirstLine, std::to_string(signal)));
    EXPECT_THAT(outcome.errors, testing::StartsWith("Error: "));
}

TEST_P(Signals, RaisedOnAnyThread_DoTheSame) {
    const int signal = GetParam();
    const Outcome outcome = RunForked([signal] {
        CrashHandler::Init();
        std::thread([signal] {
            pthread_kill(pthread_self(), signal);
            WaitForTheEnd();
        }).join();
    });
    EXPECT_EQ(1, outcome.status);
    EXPECT_THAT(Lines(outcome.output), ElementsAre(kNoFile, kFirstLine, std::to_string(signal)));
}

TEST_P(Signals, ThatTheParentIgnored_StayIgnored) {
    const int signal = GetParam();
    InChild([signal] {
        std::signal(signal, SIG_IGN);
        CrashHandler::Init();
        EXPECT_EQ(0, raise(signal));
        EXPECT_EQ(0, kill(getpid(), signal));
        EXPECT_EQ(SIG_IGN, std::signal(signal, SIG_IGN));
    });
}

TEST_P(Signals, WhoseFunctionIsSetTwice_AreHandledOnce) {
    const int signal = GetParam();
    const Outcome outcome = RunForked([signal] {
        CrashHandler::Init();
        CrashHandler::SetFunction(signal);
        kill(getpid(), signal);
        WaitForTheEnd();
    });
    EXPECT_EQ(1, outcome.status);
    EXPECT_THAT(Lines(outcome.output), ElementsAre(kNoFile, kFirstLine, std::to_string(signal)));
}

TEST_P(Signals, HandledWithoutInit_DoTheSame) {
    const int signal = GetParam();
    const Outcome outcome = RunForked([signal] { CrashHandler::HandleSignal(signal); });
    EXPECT_EQ(1, outcome.status);
    EXPECT_THAT(Lines(outcome.output), ElementsAre(kNoFile, kFirstLine, std::to_string(signal)));
}

TEST(CrashHandler, Termination_IsInTheLogFile) {
    const Outcome outcome = RunForked([] {
        WriteFile(Home() + "/tesselLog.txt", "");
        CrashHandler::Init();
        // The home goes with the child, so the child tells what was written there.
        std::atexit([] { std::fputs(ReadFile(Home() + "/tesselLog.txt").c_str(), stderr); });
        kill(getpid(), SIGTERM);
        WaitForTheEnd();
    });
    EXPECT_EQ(1, outcome.status);
    // Each line is a tag of five digits, " - " and the message.
    std::vector<std::string> logged;
    for (const std::string& line : Lines(outcome.errors)) {
        if (line.find(" - ") == 5) {
            logged.push_back(line.substr(8));
        }
    }
    EXPECT_THAT(logged, ElementsAre("Log file initialization succeeded.", kFirstLine, "15"));
}

TEST(CrashHandler, TheSystemsError_IsNamedOnStandardError) {
    SKIP_WHERE_THREADS_ARE_WATCHED();
    const Outcome outcome = RunForked([] {
        CrashHandler::Init();
        errno = ENOTEMPTY;
        raise(SIGABRT);
    });
    EXPECT_EQ(1, outcome.status);
    EXPECT_EQ("Error: Directory not empty\n", outcome.errors);
}

TEST(CrashHandler, AnotherHandlerFromBefore_IsNotCalled) {
    const Outcome outcome = RunForked([] {
        std::signal(SIGTERM, [](int) { _exit(99); });
        CrashHandler::Init();
        kill(getpid(), SIGTERM);
        WaitForTheEnd();
    });
    EXPECT_EQ(1, outcome.status);
}

TEST(CrashHandler, WhatWasPrintedBefore_IsNotLost) {
    const Outcome outcome = RunForked([] {
        CrashHandler::Init();
        std::puts("before");
        kill(getpid(), SIGTERM);
        WaitForTheEnd();
    });
    EXPECT_THAT(Lines(outcome.output), ElementsAre("before", kNoFile, kFirstLine, "15"));
}

TEST(CrashHandler, WritingToASocketWhosePeerHasGone_IsAnError) {
    InChild([] {
        CrashHandler::Init();
        int ends[2];
        ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends));
        close(ends[1]);
        errno = 0;
        EXPECT_EQ(-1, write(ends[0], "x", 1));
        EXPECT_EQ(EPIPE, errno);
        close(ends[0]);
    });
}

TEST(CrashHandler, Init_KeepsTheLogSilent) {
    InChild([] {
        CrashHandler::Init();
        EXPECT_THAT(Printed(), testing::IsEmpty());
        EXPECT_EQ("", PrintedErrors());
    });
}

TEST(CrashHandler, ManySignalsAtOnce_EndItOnce) {
    const Outcome outcome = RunForked([] {
        CrashHandler::Init();
        for (int i = 0; i < 50; ++i) {
            kill(getpid(), i % 2 == 0 ? SIGTERM : SIGINT);
        }
        WaitForTheEnd();
    });
    EXPECT_EQ(1, outcome.status);
    const std::vector<std::string> lines = Lines(outcome.output);
    ASSERT_EQ(3u, lines.size()) << outcome.output;
    EXPECT_EQ(kFirstLine, lines[1]);
}

TEST(CrashHandler, ToldToEndWhileOthersLog_EndsEveryTimeWithBothLines) {
    // The handler must not come in the middle of a message, and must not wait for itself.
    for (int round = 0; round < 10; ++round) {
        const Outcome outcome = RunForked([round] {
            static std::atomic<int> logged{0};
            CrashHandler::Init();
            for (int i = 0; i < 3; ++i) {
                std::thread([] {
                    for (;;) {
                        Helpers::logprint("a message like any other");
                        ++logged;
                    }
                }).detach();
            }
            WaitUntil([round] { return logged > 50 * round; });
            kill(getpid(), SIGTERM);
            WaitForTheEnd();
        });
        ASSERT_EQ(1, outcome.status) << "round " << round;
        EXPECT_THAT(Lines(outcome.output), testing::Contains(kFirstLine).Times(1));
        EXPECT_THAT(Lines(outcome.output), testing::Contains("15").Times(1));
    }
}

TEST(CrashHandler, ToldToEndWhileStandardOutputIsFlushed_PrintsNothingTwice) {
    for (int round = 0; round < 30; ++round) {
        const Outcome outcome = RunForked([] {
            CrashHandler::Init();
            std::atomic<bool> flushes{false};
            std::thread([&flushes] {
                WaitUntil([&flushes] { return flushes.load(); });
                kill(getpid(), SIGTERM);
                WaitForTheEnd();
            }).detach();
            for (;;) {
                std::fflush(stdout);
                flushes = true;
            }
        });
        ASSERT_EQ(1, outcome.status) << "round " << round;
        EXPECT_THAT(Lines(outcome.output), ElementsAre(kNoFile, kFirstLine, "15"));
    }
}

TEST(CrashHandler, ToldToEndTwiceInDifferentWays_EndsOnce) {
    for (int round = 0; round < 30; ++round) {
        const Outcome outcome = RunForked([] {
            CrashHandler::Init();
            std::thread([] {
                kill(getpid(), SIGINT);
                WaitForTheEnd();
            }).detach();
            kill(getpid(), SIGTERM);
            WaitForTheEnd();
        });
        ASSERT_EQ(1, outcome.status) << "round " << round;
        EXPECT_EQ(3u, Lines(outcome.output).size()) << outcome.output;
    }
}

// What happens while the process already ends is done by functions that run at exit.

TEST(CrashHandler, AFaultWhileEnding_EndsTheProcessAtOnce) {
    SKIP_WHERE_SIGNALS_ARE_KEPT_BACK();
    const Outcome outcome = RunForked([] {
        std::atexit([] {
            raise(SIGFPE);
            std::puts("went on");
        });
        CrashHandler::Init();
        raise(SIGABRT);
    });
    EXPECT_EQ(1, outcome.status);
    EXPECT_THAT(Lines(outcome.output), ElementsAre(kNoFile, kFirstLine, "6"));
}

TEST(CrashHandler, AFaultOfAnotherThreadWhileEnding_DoesNotComeInTheWay) {
    const Outcome outcome = RunForked([] {
        std::atexit([] {
            static std::atomic<pid_t> other{0};
            std::thread([] {
                other = gettid();
                raise(SIGFPE);
                std::puts("went on");
            }).detach();
            // Until it waits, which nothing but the handler does.
            EXPECT_TRUE(WaitUntil([] {
                const std::string task = "/proc/self/task/" + std::to_string(other.load());
                return other != 0 && ReadFile(task + "/stat").find(") S ") != std::string::npos;
            }));
            std::puts("came to its end");
        });
        CrashHandler::Init();
        raise(SIGABRT);
    });
    EXPECT_EQ(1, outcome.status);
    EXPECT_THAT(Lines(outcome.output), ElementsAre(kNoFile, kFirstLine, "6", "came to its end"));
}

TEST(CrashHandler, ToldToEndWhileEnding_ChangesNothing) {
    const Outcome outcome = RunForked([] {
        std::atexit([] {
            for (int round = 0; round < 100; ++round) {
                raise(round % 2 == 0 ? SIGTERM : SIGINT);
                std::this_thread::yield();
            }
            std::puts("came to its end");
        });
        CrashHandler::Init();
        raise(SIGABRT);
    });
    EXPECT_EQ(1, outcome.status);
    EXPECT_THAT(Lines(outcome.output), ElementsAre(kNoFile, kFirstLine, "6", "came to its end"));
}

TEST(CrashHandler, AnEndThatTakesTooLong_IsCutShort) {
    SKIP_WHERE_SIGNALS_ARE_KEPT_BACK();
    const Outcome outcome = RunForked([] {
        std::atexit(WaitForTheEnd);
        CrashHandler::Init();
        raise(SIGABRT);
    });
    EXPECT_EQ(1, outcome.status);
    EXPECT_THAT(Lines(outcome.output), ElementsAre(kNoFile, kFirstLine, "6"));
}

TEST(CrashHandler, AFaultWhereTheLogIsBeingWritten_EndsTheProcess) {
    // The thread that faults holds the log.
    const Outcome outcome = RunForked([] {
        CrashHandler::Init();
        for (int i = 0; i < 3; ++i) {
            std::thread([] {
                for (;;) {
                    Helpers::logprint("a message like any other");
                }
            }).detach();
        }
        for (;;) {
            raise(SIGFPE);
        }
    });
    EXPECT_EQ(1, outcome.status);
    EXPECT_THAT(Lines(outcome.output), testing::Contains("8"));
}

}  // namespace
