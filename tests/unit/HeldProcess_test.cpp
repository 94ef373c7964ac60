// Processes that are held while something is done to them.

#include "Support/HeldProcess.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

namespace {

using frameworks::HeldProcess;
using frameworks::ProcessStatus;
using frameworks::StatusOf;
using std::chrono::milliseconds;

class Child {
  public:
    Child() : pid(fork()) {
        if (pid == 0) {
            for (;;)
                pause();
        }
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child() {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }

    const pid_t pid;
};

TEST(HeldProcess, Signal_ReachesTheProcess) {
    const Child child;
    const HeldProcess held(StatusOf(child.pid).value());
    EXPECT_EQ(held.Signal(SIGTERM), 0);
    siginfo_t ended = {};
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child.pid), &ended, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(ended.si_status, SIGTERM);
    // It has ended, though nobody has waited for it.
    EXPECT_EQ(held.Signal(SIGTERM), ESRCH);
}

TEST(HeldProcess, Signal_WhenTheNumberIsAnotherOnesNow_IsNotSent) {
    const Child child;
    ProcessStatus before = StatusOf(child.pid).value();
    before.startTime -= 1;
    EXPECT_EQ(HeldProcess(before).Signal(SIGKILL), ESRCH);
    EXPECT_FALSE(StatusOf(child.pid)->isZombie);
}

TEST(HeldProcess, Signal_ToAProcessOfSomebodyElse_IsRefused) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can become somebody else";
    const Child child;
    const ProcessStatus status = StatusOf(child.pid).value();
    const pid_t other = fork();
    if (other == 0) {
        _exit(setuid(65534) == 0 && HeldProcess(status).Signal(SIGKILL) == EPERM ? 0 : 1);
    }
    int result = -1;
    ASSERT_EQ(waitpid(other, &result, 0), other);
    EXPECT_EQ(result, 0);
}

TEST(HeldProcess, EndsWithin_WaitsForTheEndAndNoLonger) {
    const Child child;
    const HeldProcess held(StatusOf(child.pid).value());
    EXPECT_FALSE(held.EndsWithin(milliseconds(1)));
    kill(child.pid, SIGKILL);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(held.EndsWithin(milliseconds(60000)));
    EXPECT_LT(std::chrono::steady_clock::now() - start, milliseconds(30000));
    EXPECT_TRUE(held.EndsWithin(milliseconds(0)));
}

}  // namespace
