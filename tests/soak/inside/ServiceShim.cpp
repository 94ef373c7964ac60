// Goes into the service at its start, for two faults that cannot be had from outside: a clock that
// is set, and signals that interrupt system calls. It links nothing.
//
// The clock: calls that ask for the time of day get the machine's and as many seconds more as the
// first eight bytes of the file $SOAK_CLOCK say, which may change at any time. The clocks that
// cannot be set are left alone, and so are the kernel's own timers.
//
// The signals: SIGURG, which nobody ignores here, does nothing, but interrupts.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <ctime>

namespace {

const volatile std::int64_t* offset = nullptr;

std::int64_t Offset() {
    return offset == nullptr ? 0 : *offset;
}

void DoNothing(int /*signal*/) {}

__attribute__((constructor)) void MoveIn() {
    // What the service starts is none of ours.
    unsetenv("LD_PRELOAD");
    if (const char* const path = getenv("SOAK_CLOCK")) {
        const int file = open(path, O_RDONLY | O_CLOEXEC);
        if (file != -1) {
            void* const mapped = mmap(nullptr, sizeof *offset, PROT_READ, MAP_SHARED, file, 0);
            offset = mapped == MAP_FAILED ? nullptr : static_cast<const std::int64_t*>(mapped);
            close(file);
        }
    }
    // Without SA_RESTART.
    struct sigaction action = {};
    action.sa_handler = DoNothing;
    sigaction(SIGURG, &action, nullptr);
}

}  // namespace

extern "C" {

int clock_gettime(clockid_t clock, struct timespec* now) noexcept {
    const long result = syscall(SYS_clock_gettime, clock, now);
    if (result == 0 && clock == CLOCK_REALTIME) {
        now->tv_sec += Offset();
    }
    return static_cast<int>(result);
}

int gettimeofday(struct timeval* now, void* /*zone*/) noexcept {
    timespec precise;
    if (clock_gettime(CLOCK_REALTIME, &precise) != 0) {
        return -1;
    }
    now->tv_sec = precise.tv_sec;
    now->tv_usec = static_cast<suseconds_t>(precise.tv_nsec / 1000);
    return 0;
}

time_t time(time_t* seconds) noexcept {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    if (seconds != nullptr) {
        *seconds = now.tv_sec;
    }
    return now.tv_sec;
}
}
