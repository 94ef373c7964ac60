#include "core/CrashHandler.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "core/Helpers.h"
#include "core/StandardOutput.h"

namespace {

using Handler = void (*)(int);

constexpr int kExitStatus = 1;
// How long a fault's handler may take before the process is ended without it.
constexpr unsigned kSecondsToReport = 5;

Handler _prev_fn = SIG_DFL;

std::atomic<bool> signalThreadRuns{false};
pthread_t signalThread;

std::atomic<bool> ending{false};
pthread_t endingThread;

sigset_t RequestsToEnd() {
    sigset_t requests;
    sigemptyset(&requests);
    sigaddset(&requests, SIGINT);
    sigaddset(&requests, SIGTERM);
    return requests;
}

bool IsRequestToEnd(int signal) {
    return signal == SIGINT || signal == SIGTERM;
}

// The thread takes its signals one by one, outside of any handler, so that the log may be written
// whatever the other threads are at.
void* WaitForRequests(void* callersMask) {
    const sigset_t requests = RequestsToEnd();
    sigset_t mask = *static_cast<const sigset_t*>(callersMask);
    sigaddset(&mask, SIGINT);
    sigaddset(&mask, SIGTERM);
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    for (;;) {
        int signal = 0;
        if (sigwait(&requests, &signal) == 0) {
            CrashHandler::HandleSignal(signal);
        }
    }
}

// All signals wait while the thread is being made: none may come before it waits for them.
void StartSignalThread() {
    if (signalThreadRuns) {
        return;
    }
    static sigset_t callersMask;
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &callersMask);
    if (pthread_create(&signalThread, nullptr, WaitForRequests, &callersMask) == 0) {
        pthread_detach(signalThread);
        signalThreadRuns = true;
    }
    pthread_sigmask(SIG_SETMASK, &callersMask, nullptr);
}

void EndAtOnce(int /*signal*/) {
    _exit(kExitStatus);
}

// A second signal while the process already ends. A repeated request changes nothing; a fault on
// the thread that ends the process ends it at once, and one on another thread must not come in the
// way.
void SignalWhileEnding(int signal) {
    if (IsRequestToEnd(signal)) {
        return;
    }
    if (pthread_equal(pthread_self(), endingThread)) {
        _exit(kExitStatus);
    }
    for (;;) {
        pause();
    }
}

// exit() writes out what is buffered without asking whether another thread is just doing that; then
// the last lines would come twice. With nothing buffered, and nobody else at the stream any more,
// it has nothing to write. The log is kept first, so that no line of the other threads is in the
// file alone.
void KeepLogAndStandardOutput() {
    Helpers::keepLog();
    flockfile(stdout);
    FlushStandardOutput();
}

}  // namespace

void CrashHandler::Init() {
    StartSignalThread();
    for (const int signal : {SIGABRT, SIGFPE, SIGILL, SIGINT, SIGSEGV, SIGTERM}) {
        SetFunction(signal);
    }
    signal(SIGPIPE, SIG_IGN);
}

void CrashHandler::SetFunction(int signal) {
    _prev_fn = ::signal(signal, HandleSignal);
    if (_prev_fn == SIG_IGN) {
        ::signal(signal, SIG_IGN);
    }
}

void CrashHandler::HandleSignal(int signal) {
    if (IsRequestToEnd(signal) && signalThreadRuns &&
        !pthread_equal(pthread_self(), signalThread)) {
        const int keptErrno = errno;
        pthread_kill(signalThread, signal);
        errno = keptErrno;
        return;
    }
    if (ending.exchange(true)) {
        SignalWhileEnding(signal);
        return;
    }
    endingThread = pthread_self();
    ::signal(SIGALRM, EndAtOnce);
    alarm(kSecondsToReport);
    Helpers::logprint(L"[CRASH] Program terminated unexpectedly. Signal:",
                      Helpers::intToWString(signal));
    std::perror("Error");
    KeepLogAndStandardOutput();
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the first thread that comes here is the only one
    std::exit(kExitStatus);
}
