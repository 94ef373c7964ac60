#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <ctime>
#include <list>

#include "PenTap.h"
#include "driver/TapServer.h"
#include "driver/Timer.h"

namespace {

using driver::TapServer;
using pentest::Record;
using pentest::Records;

// No further descriptors for this process while it lives.
class NoDescriptors {
  public:
    NoDescriptors() {
        getrlimit(RLIMIT_NOFILE, &before);
        const driver::Descriptor lowest(dup(STDERR_FILENO));
        rlimit none = before;
        none.rlim_cur = static_cast<rlim_t>(lowest.Get());
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;
    ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &before); }

  private:
    rlimit before;
};

std::chrono::nanoseconds WorkOfThisThread() {
    timespec time;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

class PenTapServer : public ::testing::Test {
  protected:
    // Whether CONDITION came to hold while the loop ran.
    bool RunUntil(const std::function<bool()>& condition) {
        const auto deadline = driver::Timer::Clock::now() + std::chrono::seconds(10);
        driver::Timer timer(loop, [&] {
            if (condition() || driver::Timer::Clock::now() > deadline) {
                loop.Stop();
            } else {
                timer.CallAt(driver::Timer::Clock::now() + std::chrono::milliseconds(1));
            }
        });
        timer.CallAt(driver::Timer::Clock::now());
        loop.Run();
        return condition();
    }

    PenTap Connect() {
        const std::size_t before = server.CountOfTaps();
        PenTap tap(getpid());
        EXPECT_TRUE(RunUntil([&] { return server.CountOfTaps() == before + 1; }));
        return tap;
    }

    driver::Loop loop;
    TapServer server{loop};
};

TEST_F(PenTapServer, Event_GoesToEveryTap) {
    const PenTap first = Connect();
    const PenTap second = Connect();
    server.Post(Record(6, 1.5, 2.5, 0.25));
    EXPECT_EQ(first.Read(1), (Records{Record(6, 1.5, 2.5, 0.25)}));
    EXPECT_EQ(second.Read(1), (Records{Record(6, 1.5, 2.5, 0.25)}));
}

TEST_F(PenTapServer, Event_WithoutATap_IsNobodys) {
    server.Post(Record(6, 1, 1));
    const PenTap late = Connect();
    server.Post(Record(6, 2, 2));
    EXPECT_EQ(late.Read(1), (Records{Record(6, 2, 2)}));
}

TEST_F(PenTapServer, TapThatGoes_IsForgotten) {
    PenTap tap = Connect();
    int changes = 0;
    server.WhenChanged([&] { ++changes; });
    tap.Close();
    EXPECT_TRUE(RunUntil([&] { return server.CountOfTaps() == 0; }));
    EXPECT_EQ(changes, 1);
}

TEST_F(PenTapServer, TapThatIsGoneAlready_IsForgottenWhenPostedTo) {
    PenTap tap = Connect();
    const PenTap other = Connect();
    tap.Close();
    server.Post(Record(1, 1, 1));
    EXPECT_EQ(server.CountOfTaps(), 1u);
    EXPECT_EQ(other.Read(1).size(), 1u);
}

TEST_F(PenTapServer, TapThatSpeaks_IsNone) {
    const PenTap tap = Connect();
    ASSERT_EQ(send(tap.Get(), "x", 1, 0), 1);
    EXPECT_TRUE(RunUntil([&] { return server.CountOfTaps() == 0; }));
    EXPECT_TRUE(tap.Read().empty());
}

TEST_F(PenTapServer, TapThatReadsLate_GetsEverythingInOrder) {
    const PenTap late = Connect();
    const PenTap punctual = Connect();
    constexpr int kEvents = 3000;
    for (int count = 0; count < kEvents; ++count) {
        server.Post(Record(6, count, 0));
        ASSERT_EQ(punctual.Read(1).size(), 1u);
    }
    EXPECT_FALSE(server.IsDone());
    Records got;
    EXPECT_TRUE(RunUntil([&] {
        while (true) {
            const std::string packet = late.ReadPacket(0);
            if (packet.empty()) break;
            penEvents::Record record{};
            packet.copy(reinterpret_cast<char*>(&record), sizeof record);
            got.push_back(record);
        }
        return got.size() == kEvents;
    }));
    EXPECT_TRUE(server.IsDone());
    for (int count = 0; count < kEvents; ++count) {
        ASSERT_EQ(got[static_cast<std::size_t>(count)].x, count);
    }
    // And goes on without a detour.
    server.Post(Record(2, 7, 7));
    EXPECT_EQ(late.Read(1), (Records{Record(2, 7, 7)}));
}

TEST_F(PenTapServer, TapThatDoesNotRead_IsCutOff_AndDelaysNobody) {
    const PenTap stopped = Connect();
    const PenTap reading = Connect();
    std::size_t posted = 0;
    while (server.CountOfTaps() == 2 && posted < 4 * TapServer::kMostWaiting) {
        const auto start = std::chrono::steady_clock::now();
        server.Post(Record(6, static_cast<double>(posted++), 0));
        ASSERT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
        ASSERT_EQ(reading.Read(1).size(), 1u);
    }
    EXPECT_EQ(server.CountOfTaps(), 1u);
    EXPECT_GE(posted, TapServer::kMostWaiting);
    EXPECT_TRUE(server.IsDone());
}

TEST_F(PenTapServer, CutOffTheSlow_LeavesTheOthers) {
    const PenTap slow = Connect();
    const PenTap fast = Connect();
    while (server.IsDone()) {
        server.Post(Record(6, 1, 1));
        fast.Read(1);
    }
    server.CutOffTheSlow();
    EXPECT_EQ(server.CountOfTaps(), 1u);
    EXPECT_TRUE(server.IsDone());
    server.Post(Record(2, 5, 5));
    EXPECT_EQ(fast.Read(1), (Records{Record(2, 5, 5)}));
}

TEST_F(PenTapServer, MoreTapsThanThereMayBe_AreTurnedAway) {
    std::list<PenTap> taps;
    for (std::size_t count = 0; count < TapServer::kMostTaps; ++count) {
        taps.push_back(Connect());
    }
    const PenTap tooMany(getpid());
    bool turnedAway = false;
    EXPECT_TRUE(RunUntil([&] {
        pollfd state{tooMany.Get(), POLLIN, 0};
        turnedAway = poll(&state, 1, 0) == 1 && (state.revents & POLLHUP) != 0;
        return turnedAway;
    }));
    EXPECT_EQ(server.CountOfTaps(), TapServer::kMostTaps);
}

TEST_F(PenTapServer, TapThatThereIsNoDescriptorFor_WaitsWithoutWork_UntilAnotherGoes) {
    PenTap first = Connect();
    const PenTap second(getpid());
    driver::Timer end(loop, [&] { loop.Stop(); });
    const NoDescriptors none;
    end.CallAt(driver::Timer::Clock::now() + std::chrono::milliseconds(400));
    const auto before = WorkOfThisThread();
    loop.Run();
    EXPECT_LT(WorkOfThisThread() - before, std::chrono::milliseconds(100));
    EXPECT_EQ(server.CountOfTaps(), 1u);
    first.Close();
    EXPECT_TRUE(RunUntil([&] {
        server.Post(Record(6, 1, 1));
        return !second.ReadPacket(0).empty();
    }));
    EXPECT_EQ(server.CountOfTaps(), 1u);
}

TEST_F(PenTapServer, TapThatThereWasNoDescriptorFor_IsTakenWhenThereIsOne) {
    const PenTap tap(getpid());
    {
        driver::Timer end(loop, [&] { loop.Stop(); });
        const NoDescriptors none;
        end.CallAt(driver::Timer::Clock::now() + std::chrono::milliseconds(10));
        loop.Run();
    }
    EXPECT_EQ(server.CountOfTaps(), 0u);
    EXPECT_TRUE(RunUntil([&] { return server.CountOfTaps() == 1; }));
}

TEST_F(PenTapServer, AnotherUsersTap_IsTurnedAway) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to become other users";
    constexpr uid_t kSomebody = 65533;
    constexpr uid_t kNobody = 65534;
    int ready[2];
    ASSERT_EQ(pipe2(ready, O_CLOEXEC), 0);
    const pid_t poster = fork();
    ASSERT_NE(poster, -1);
    if (poster == 0) {
        if (setresuid(kSomebody, kSomebody, kSomebody) != 0) _exit(1);
        driver::Loop theirLoop;
        TapServer theirs(theirLoop);
        theirs.WhenChanged([&] { theirs.Post(Record(1, 1, 1)); });
        if (write(ready[1], "y", 1) != 1) _exit(1);
        theirLoop.Run();
    }
    char mark = 0;
    ASSERT_EQ(read(ready[0], &mark, 1), 1);
    const auto countSeenBy = [&](uid_t user) {
        const pid_t child = fork();
        EXPECT_NE(child, -1);
        if (child == 0) {
            if (setresuid(user, user, user) != 0) _exit(99);
            const PenTap tap(poster);
            _exit(static_cast<int>(tap.Read(1).size()));
        }
        int status = 0;
        waitpid(child, &status, 0);
        return WEXITSTATUS(status);
    };
    EXPECT_EQ(countSeenBy(kNobody), 0);
    EXPECT_EQ(countSeenBy(kSomebody), 1);
    EXPECT_EQ(countSeenBy(0), 1);
    kill(poster, SIGKILL);
    waitpid(poster, nullptr, 0);
    close(ready[0]);
    close(ready[1]);
}

TEST_F(PenTapServer, SecondServerOfAProcess_IsRefused) {
    driver::Loop another;
    EXPECT_THROW(TapServer{another}, std::system_error);
}

}  // namespace
