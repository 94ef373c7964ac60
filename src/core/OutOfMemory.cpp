#include "core/OutOfMemory.h"

#include <pthread.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <new>

#include "core/StandardOutput.h"

namespace {

constexpr int kExitStatus = 1;
constexpr long long kMicrosecondsToWait = 1000000;
constexpr useconds_t kPause = 10000;
// Between two attempts of one request there is nothing but the pause; on a busy machine that takes
// longer than it should.
constexpr long long kSurelyAnother = 50LL * kPause;

// What a thread asks for in vain. The request is known by where the thread's stack stands: as long
// as it has not been granted, it asks again from the very same place.
struct Request {
    pthread_t thread;
    const void* place;
    long long since;
    long long last;
};

// More than the service has threads.
Request requests[8];
// Without a destructor, and there before anything asks for memory.
pthread_mutex_t requestsMutex = PTHREAD_MUTEX_INITIALIZER;

struct LockedRequests {
    LockedRequests() { pthread_mutex_lock(&requestsMutex); }
    LockedRequests(const LockedRequests&) = delete;
    LockedRequests& operator=(const LockedRequests&) = delete;
    ~LockedRequests() { pthread_mutex_unlock(&requestsMutex); }
};

long long Now() {
    timeval now;
    gettimeofday(&now, nullptr);
    return static_cast<long long>(now.tv_sec) * 1000000 + now.tv_usec;
}

// What this thread has asked for last, or what was asked for longest ago.
Request& LastOfThisThread() {
    Request* oldest = &requests[0];
    for (Request& request : requests) {
        if (request.place != nullptr && pthread_equal(request.thread, pthread_self())) {
            return request;
        }
        if (request.last < oldest->last) {
            oldest = &request;
        }
    }
    *oldest = {pthread_self(), nullptr, 0, 0};
    return *oldest;
}

// How long the request from PLACE has been in vain: 0 only when it is the first time.
long long InVainFor(const void* place) {
    const LockedRequests locked;
    const long long now = Now();
    Request& request = LastOfThisThread();
    // The clock may also have been set.
    if (request.place != place || now < request.last || now - request.last > kSurelyAnother) {
        request.place = place;
        request.since = now;
        request.last = now;
        return 0;
    }
    request.last = now;
    return std::max(now - request.since, 1LL);
}

// Nothing here may ask for memory.
[[noreturn]] void EndTheService() {
    static const char kMessage[] = "TesselCore: out of memory\n";
    // There is nowhere left to report that this failed.
    static_cast<void>(!write(STDERR_FILENO, kMessage, sizeof kMessage - 1));
    if (ftrylockfile(stdout) == 0) {
        FlushStandardOutput();
    }
    _exit(kExitStatus);
}

void Wait() {
    const long long inVain = InVainFor(__builtin_frame_address(0));
    if (inVain > kMicrosecondsToWait) {
        EndTheService();
    }
    // The first time it is tried again at once: somebody else may just have given something back.
    if (inVain > 0) {
        usleep(kPause);
    }
}

}  // namespace

void WaitForMemoryWhenThereIsNone() {
    std::set_new_handler(Wait);
}
