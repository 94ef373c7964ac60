// Calls back once, at a moment. The callback may destroy the timer.
//
// Owner: whoever waits. Threads: that of the loop. Failure: the constructor throws
// std::system_error.
#pragma once

#include <chrono>
#include <functional>

#include "driver/Descriptor.h"
#include "driver/Loop.h"

namespace driver {

class Timer {
  public:
    using Clock = std::chrono::steady_clock;

    Timer(Loop& itsLoop, std::function<void()> itsCallBack);
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;
    ~Timer();

    // Instead of any earlier moment. One that has passed is at once, but not within this call.
    void CallAt(Clock::time_point moment);
    void Cancel();

  private:
    void Set(std::chrono::nanoseconds moment);
    void Ring();

    Loop& loop;
    const Descriptor timer;
    const std::function<void()> callBack;
};

}  // namespace driver
