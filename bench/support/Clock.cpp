#include "support/Clock.h"

#include "support/Failure.h"

namespace {

std::int64_t Read(clockid_t clock) {
    timespec time;
    if (clock_gettime(clock, &time) != 0) {
        FailWithErrno("clock_gettime");
    }
    return static_cast<std::int64_t>(time.tv_sec) * 1000000000 + time.tv_nsec;
}

}  // namespace

std::int64_t Now() {
    return Read(CLOCK_MONOTONIC);
}

ProcessClock::ProcessClock(pid_t process) : clock() {
    if (clock_getcpuclockid(process, &clock) != 0) {
        throw Failure("the measured process is gone");
    }
}

std::int64_t ProcessClock::Read() const {
    return ::Read(clock);
}
