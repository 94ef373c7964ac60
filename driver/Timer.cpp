#include "driver/Timer.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <system_error>

namespace driver {

Timer::Timer(Loop& itsLoop, std::function<void()> itsCallBack)
    : loop(itsLoop),
      timer(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)),
      callBack(std::move(itsCallBack)) {
    if (!timer.IsOpen()) {
        throw std::system_error(errno, std::generic_category(), "there is no clock");
    }
    loop.Watch(timer.Get(), EPOLLIN, [this](std::uint32_t) { Ring(); });
}

Timer::~Timer() {
    loop.Forget(timer.Get());
}

void Timer::CallAt(Clock::time_point moment) {
    // 0 would mean never. The clock is the kernel's monotonic one.
    Set(std::max(std::chrono::nanoseconds(1),
                 std::chrono::duration_cast<std::chrono::nanoseconds>(moment.time_since_epoch())));
}

void Timer::Cancel() {
    Set(std::chrono::nanoseconds(0));
}

void Timer::Set(std::chrono::nanoseconds moment) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(moment);
    itimerspec at{};
    at.it_value.tv_sec = seconds.count();
    at.it_value.tv_nsec = (moment - seconds).count();
    timerfd_settime(timer.Get(), TFD_TIMER_ABSTIME, &at, nullptr);
}

void Timer::Ring() {
    std::uint64_t rings = 0;
    if (read(timer.Get(), &rings, sizeof rings) == sizeof rings) {
        // A copy: the timer may go with the call.
        const std::function<void()> call = callBack;
        call();
    }
}

}  // namespace driver
