#include "unit/support/Sleeping.h"

#include <unistd.h>

#include <cerrno>
#include <ctime>

namespace {

struct Sleeping {
    bool isQuick = false;
    std::function<void(std::size_t)> during;
    std::vector<unsigned> slept;
};

Sleeping& TheSleeping() {
    static Sleeping& sleeping = *new Sleeping();
    return sleeping;
}

// An error's number, or 0.
int ReallySleep(const timespec& time, timespec* left) {
    return clock_nanosleep(CLOCK_MONOTONIC, 0, &time, left);
}

void Note(unsigned seconds) {
    Sleeping& sleeping = TheSleeping();
    sleeping.slept.push_back(seconds);
    if (sleeping.during) {
        sleeping.during(sleeping.slept.size());
    }
}

}  // namespace

void SleepQuickly(std::function<void(std::size_t)> during) {
    TheSleeping().isQuick = true;
    TheSleeping().during = std::move(during);
}

const std::vector<unsigned>& Slept() {
    return TheSleeping().slept;
}

extern "C" unsigned sleep(unsigned seconds) {
    if (TheSleeping().isQuick) {
        Note(seconds);
        return 0;
    }
    timespec left = {static_cast<time_t>(seconds), 0};
    return ReallySleep(left, &left) == EINTR ? static_cast<unsigned>(left.tv_sec) : 0;
}

extern "C" int nanosleep(const timespec* time, timespec* left) {
    // Parts of a second are tests that wait for something.
    if (TheSleeping().isQuick && time->tv_nsec == 0) {
        Note(static_cast<unsigned>(time->tv_sec));
        return 0;
    }
    errno = ReallySleep(*time, left);
    return errno == 0 ? 0 : -1;
}
