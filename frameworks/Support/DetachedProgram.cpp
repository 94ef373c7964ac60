#include "Support/DetachedProgram.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "Support/ChildProcess.h"
#include "Support/UniqueDescriptor.h"

namespace frameworks {
namespace {

constexpr int kReport = STDERR_FILENO + 1;

// All that the two children need; made before there are any, because between fork and execve a
// child of a process with threads may neither allocate nor lock.
struct Plan {
    char* const* words;
    char* const* environment;
    int input;
    int output;
    int errors;
    // Told the number of an error. Closed by execve.
    int report;
};

[[noreturn]] void Fail(int report) {
    const int error = errno;
    // Nobody is left to be told when this fails.
    const ssize_t written = write(report, &error, sizeof error);
    _exit(written == sizeof error ? 0 : 1);
}

void GiveUsualSignals() {
    struct sigaction usual = {};
    usual.sa_handler = SIG_DFL;
    for (int signal = 1; signal < NSIG; ++signal) {
        // Those that cannot be changed have not been.
        sigaction(signal, &usual, nullptr);
    }
    sigset_t none;
    sigemptyset(&none);
    // NOLINTNEXTLINE(concurrency-mt-unsafe): a child that has just been forked has one thread
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

[[noreturn]] void BecomeProgram(const Plan& plan) {
    if (dup2(plan.input, STDIN_FILENO) == -1 || dup2(plan.output, STDOUT_FILENO) == -1 ||
        dup2(plan.errors, STDERR_FILENO) == -1) {
        Fail(plan.report);
    }
    if (plan.report != kReport && dup3(plan.report, kReport, O_CLOEXEC) == -1) {
        Fail(plan.report);
    }
    closefrom(kReport + 1);
    if (chdir("/") != 0) {
        Fail(kReport);
    }
    GiveUsualSignals();
    execve(plan.words[0], plan.words, plan.environment);
    Fail(kReport);
}

// The first child exists to make the second one an orphan, which it is when the first one has gone.
[[noreturn]] void StartAndEnd(const Plan& plan) {
    if (setsid() == -1) {
        Fail(plan.report);
    }
    const pid_t program = fork();
    if (program == 0) {
        BecomeProgram(plan);
    }
    if (program == -1) {
        Fail(plan.report);
    }
    _exit(0);
}

// Keeps this process's answers to signals from running in the children.
class SignalsBlocked {
  public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before);
    }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }

  private:
    sigset_t before;
};

pid_t Fork(const Plan& plan) {
    // What was printed so far must not come twice: with ThreadSanitizer, a child that only ends
    // writes it out as well.
    static_cast<void>(std::fflush(stdout));
    const SignalsBlocked blocked;
    const pid_t child = fork();
    if (child == 0) {
        StartAndEnd(plan);
    }
    return child;
}

// The number that was reported, or 0 when the pipe was closed without one.
int ReadReport(int report) {
    int error = 0;
    for (;;) {
        const ssize_t length = read(report, &error, sizeof error);
        if (length == sizeof error) return error;
        if (length != -1) return 0;
        if (errno != EINTR) return errno;
    }
}

}  // namespace

int StartDetached(const DetachedProgram& program) {
    const UniqueDescriptor nowhere(open("/dev/null", O_RDWR | O_CLOEXEC));
    int ends[2];
    if (!nowhere.IsOpen() || pipe2(ends, O_CLOEXEC) != 0) return errno;
    const UniqueDescriptor ours(ends[0]);
    UniqueDescriptor theirs(ends[1]);
    const std::vector<char*> words = PointersTo(program.words);
    const std::vector<char*> environment = PointersTo(program.environment);
    const pid_t child = Fork({words.data(), environment.data(), nowhere.Get(),
                              program.output == -1 ? nowhere.Get() : program.output,
                              program.errors == -1 ? nowhere.Get() : program.errors, theirs.Get()});
    if (child == -1) return errno;
    theirs.Close();
    const int error = ReadReport(ours.Get());
    WaitForChild(child);
    return error;
}

}  // namespace frameworks
