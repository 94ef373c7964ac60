// Above all, that it is the layer's popen which programs get, sanitizers or not: the C library
// refuses "r+".
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "FilesTesting.h"
#include "Support/UniqueDescriptor.h"

namespace {

using frameworks::UniqueDescriptor;

std::string ReadToEnd(FILE* stream) {
    std::string all;
    char piece[4096];
    for (;;) {
        const std::size_t length = fread(piece, 1, sizeof piece, stream);
        all.append(piece, length);
        if (length == 0) return all;
    }
}

struct Result {
    std::string output;
    int status;
};

Result RunCommand(const std::string& command, const char* mode = "r") {
    FILE* const stream = popen(command.c_str(), mode);
    EXPECT_NE(stream, nullptr) << command;
    if (stream == nullptr) return Result{"", -1};
    Result result;
    result.output = ReadToEnd(stream);
    result.status = pclose(stream);
    return result;
}

TEST(Popen, Reading_GivesTheOutputAndTheStatus) {
    const Result result = RunCommand("echo out; exit 7");
    EXPECT_EQ(result.output, "out\n");
    EXPECT_TRUE(WIFEXITED(result.status));
    EXPECT_EQ(WEXITSTATUS(result.status), 7);
}

TEST(Popen, Reading_LeavesTheErrorStreamAlone) {
    EXPECT_EQ(RunCommand("(echo error 1>&2) 2>/dev/null; echo out").output, "out\n");
    EXPECT_EQ(RunCommand("(echo error 1>&2) 2>&1").output, "error\n");
}

TEST(Popen, Status_OfACommandThatASignalEnded_TellsTheSignal) {
    const Result result = RunCommand("kill -TERM $$");
    EXPECT_TRUE(WIFSIGNALED(result.status));
    EXPECT_EQ(WTERMSIG(result.status), SIGTERM);
}

TEST(Popen, Command_ThatIsNotThere_IsTheShellsToReport) {
    const Result result = RunCommand("/nonexistent/program 2>/dev/null");
    EXPECT_EQ(WEXITSTATUS(result.status), 127);
}

TEST(Popen, Writing_ReachesTheCommandAndIsWaitedFor) {
    const filestest::TemporaryFolder folder;
    const std::string file = folder / "written";
    FILE* const stream = popen(("cat > '" + file + "'").c_str(), "w");
    ASSERT_NE(stream, nullptr);
    EXPECT_GT(fprintf(stream, "text"), 0);
    EXPECT_EQ(pclose(stream), 0);
    EXPECT_EQ(RunCommand("cat '" + file + "'").output, "text");
}

TEST(Popen, Bidirectional_AsksAndIsAnswered) {
    for (const char* const mode : {"r+", "w+"}) {
        FILE* const stream = popen("while read line; do echo \"<$line>\"; done", mode);
        ASSERT_NE(stream, nullptr) << mode;
        for (const std::string text : {"one", "two", "three"}) {
            EXPECT_GT(fprintf(stream, "%s\n", text.c_str()), 0);
            EXPECT_EQ(fflush(stream), 0);
            char line[64];
            ASSERT_NE(fgets(line, sizeof line, stream), nullptr);
            EXPECT_EQ(line, "<" + text + ">\n");
        }
        EXPECT_EQ(pclose(stream), 0);
    }
}

TEST(Popen, Bidirectional_OfACommandThatAsksForNothing_IsReadToItsEnd) {
    const Result result = RunCommand("id -u", "r+");
    EXPECT_EQ(result.output, std::to_string(geteuid()) + "\n");
    EXPECT_EQ(result.status, 0);
}

TEST(Popen, Bidirectional_WithItsWritingSideShut_EndsTheCommandsInput) {
    FILE* const stream = popen("cat; echo end", "r+");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(shutdown(fileno(stream), SHUT_WR), 0);
    EXPECT_EQ(ReadToEnd(stream), "end\n");
    EXPECT_EQ(pclose(stream), 0);
}

TEST(Popen, Modes_OtherThanThese_AreRefused) {
    for (const char* const mode : {"", "a", "x", "rw", "r+b", "+r", " r"}) {
        errno = 0;
        // cppcheck-suppress leakReturnValNotUsed ; there is no stream
        EXPECT_EQ(popen("true", mode), nullptr) << mode;
        EXPECT_EQ(errno, EINVAL) << mode;
    }
    FILE* const stream = popen("true", "re");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(pclose(stream), 0);
}

TEST(Popen, BigOutput_ComesWhole) {
    for (const char* const mode : {"r", "r+"}) {
        const Result result = RunCommand("head -c 20000000 /dev/zero | tr '\\0' x", mode);
        EXPECT_EQ(result.output, std::string(20000000, 'x')) << mode;
        EXPECT_EQ(result.status, 0) << mode;
    }
}

TEST(Popen, LongCommandLine_IsRun) {
    const std::string word(100000, 'w');
    EXPECT_EQ(RunCommand("echo " + word).output, word + "\n");
}

TEST(Popen, Child_HasTheStandardDescriptorsOnly) {
    // Neither of them is close-on-exec, and one lies far up.
    const UniqueDescriptor low(dup(STDERR_FILENO));
    const UniqueDescriptor high(fcntl(STDERR_FILENO, F_DUPFD, 500));
    ASSERT_TRUE(high.IsOpen());
    FILE* const other = popen("cat", "r+");
    ASSERT_NE(other, nullptr);
    for (const char* const mode : {"r", "r+"}) {
        // Those of the shell, told by a program that it starts.
        EXPECT_EQ(RunCommand("ls /proc/$$/fd; true", mode).output, "0\n1\n2\n") << mode;
    }
    EXPECT_EQ(pclose(other), 0);
}

TEST(Popen, Stream_IsCloseOnExec) {
    for (const char* const mode : {"r", "w", "r+"}) {
        FILE* const stream = popen("true", mode);
        ASSERT_NE(stream, nullptr);
        EXPECT_NE(fcntl(fileno(stream), F_GETFD) & FD_CLOEXEC, 0) << mode;
        pclose(stream);
    }
}

TEST(Popen, SeveralAtOnce_AreClosedInAnyOrder) {
    std::vector<FILE*> streams;
    for (int number = 0; number < 20; ++number) {
        streams.push_back(
            popen(("echo " + std::to_string(number) + "; exit " + std::to_string(number)).c_str(),
                  number % 2 == 0 ? "r" : "r+"));
        ASSERT_NE(streams.back(), nullptr);
    }
    for (const int step : {7, 0}) {
        for (int number = step; number < 20; number += 1) {
            FILE*& stream = streams[static_cast<std::size_t>(number)];
            if (stream == nullptr) continue;
            EXPECT_EQ(ReadToEnd(stream), std::to_string(number) + "\n");
            EXPECT_EQ(WEXITSTATUS(pclose(stream)), number);
            stream = nullptr;
        }
    }
}

TEST(Popen, ManyThreads_EachGetTheirOwn) {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([thread] {
            for (int turn = 0; turn < 10; ++turn) {
                const std::string text = std::to_string(thread) + " " + std::to_string(turn);
                EXPECT_EQ(RunCommand("echo " + text, turn % 2 == 0 ? "r" : "r+").output,
                          text + "\n");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(Popen, Close_WaitsThroughSignals) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    struct sigaction before;
    ASSERT_EQ(sigaction(SIGALRM, &action, &before), 0);
    FILE* const stream = popen("sleep 0.1; exit 3", "w");
    ASSERT_NE(stream, nullptr);
    const itimerval often = {{0, 1000}, {0, 1000}};
    ASSERT_EQ(setitimer(ITIMER_REAL, &often, nullptr), 0);
    const int status = pclose(stream);
    const itimerval never = {};
    EXPECT_EQ(setitimer(ITIMER_REAL, &never, nullptr), 0);
    EXPECT_EQ(sigaction(SIGALRM, &before, nullptr), 0);
    EXPECT_EQ(WEXITSTATUS(status), 3);
}

TEST(Popen, Close_OfAStreamThatIsNotPopens_IsRefusedAndLeavesIt) {
    FILE* const stream = fopen("/dev/null", "r");
    ASSERT_NE(stream, nullptr);
    // The compiler would refuse to be asked this plainly.
    int (*volatile close)(FILE*) = pclose;
    EXPECT_EQ(close(stream), -1);
    EXPECT_EQ(fclose(stream), 0);
}

TEST(Popen, Close_CollectsItsOwnChildOnly) {
    const pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) _exit(9);
    EXPECT_EQ(WEXITSTATUS(RunCommand("exit 4").status), 4);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 9);
}

TEST(Popen, Child_DiesOfABrokenPipeThoughTheProcessIgnoresIt) {
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    struct sigaction before;
    ASSERT_EQ(sigaction(SIGPIPE, &ignore, &before), 0);
    const Result result = RunCommand("yes | head -n 1");
    EXPECT_EQ(sigaction(SIGPIPE, &before, nullptr), 0);
    EXPECT_EQ(result.output, "y\n");
    EXPECT_EQ(result.status, 0);
}

TEST(Popen, WithoutDescriptors_IsRefusedAndLeavesNothingBehind) {
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    for (rlim_t count = 3; count < 12; ++count) {
        rlimit few = before;
        few.rlim_cur = count;
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
        errno = 0;
        FILE* const stream = popen("true", "r+");
        const int error = errno;
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
        if (stream == nullptr) {
            EXPECT_EQ(error, EMFILE) << count;
        } else {
            EXPECT_EQ(pclose(stream), 0);
        }
    }
    // No child of a call that failed.
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
}

// Where a process was started without its standard descriptors, the stream takes their numbers.
TEST(Popen, WithoutStandardDescriptors_Works) {
    filestest::InAChild([] {
        for (const char* const mode : {"r", "r+"}) {
            const int output = dup(STDOUT_FILENO);
            close(STDIN_FILENO);
            close(STDOUT_FILENO);
            FILE* const stream = popen("echo text", mode);
            EXPECT_NE(stream, nullptr);
            const std::string text = stream == nullptr ? "" : ReadToEnd(stream);
            const int status = stream == nullptr ? -1 : pclose(stream);
            dup2(output, STDIN_FILENO);
            dup2(output, STDOUT_FILENO);
            close(output);
            EXPECT_EQ(text, "text\n") << mode;
            EXPECT_EQ(status, 0) << mode;
        }
    });
}

}  // namespace
