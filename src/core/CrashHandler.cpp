#include "core/CrashHandler.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "core/Helpers.h"

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

bool ComesFromOutside(int signal) {
    return signal == SIGINT || signal == SIGTERM;
}

[[noreturn]] void WaitForSignals() {
    for (;;) {
        pause();
    }
}

void* RunSignalThread(void* mask) {
    pthread_sigmask(SIG_SETMASK, static_cast<const sigset_t*>(mask), nullptr);
    WaitForSignals();
}

// The thread opens itself to signals: a handler that came while it was still being set up would
// find the allocator's locks held on its own thread.
void StartSignalThread() {
    if (signalThreadRuns) {
        return;
    }
    static sigset_t callersMask;
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &callersMask);
    if (pthread_create(&signalThread, nullptr, RunSignalThread, &callersMask) == 0) {
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
    if (ComesFromOutside(signal)) {
        return;
    }
    if (pthread_equal(pthread_self(), endingThread)) {
        _exit(kExitStatus);
    }
    WaitForSignals();
}

// exit() writes out what is buffered without asking whether another thread is just doing that; then
// the last lines would come twice. With nothing buffered, and nobody else at the stream any more,
// it has nothing to write.
void KeepStandardOutput() {
    flockfile(stdout);
    std::fflush(stdout);
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
    if (ComesFromOutside(signal) && signalThreadRuns &&
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
    KeepStandardOutput();
    std::exit(kExitStatus);
}
