// How long to wait: a moment on the steady clock, in the form that poll() takes.
#pragma once

#include <algorithm>
#include <chrono>

namespace tesselctl {

class Deadline {
  public:
    using Clock = std::chrono::steady_clock;

    // Zero or less means: as long as it takes.
    static Deadline In(std::chrono::milliseconds time) {
        return Deadline(time.count() > 0 ? Clock::now() + time : Clock::time_point::max());
    }
    static Deadline Now() { return Deadline(Clock::time_point::min()); }

    // The earlier of this one and one in that time.
    Deadline OrIn(std::chrono::milliseconds time) const {
        return Deadline(std::min(moment, Clock::now() + time));
    }

    bool Passed() const { return Clock::now() >= moment; }

    // Milliseconds for poll(), rounded up so that a wait never ends too early. Long waits come in
    // slices of an hour: whoever polls asks Passed() afterwards.
    int PollTime() const {
        const Clock::time_point now = Clock::now();
        if (now >= moment) return 0;
        constexpr std::chrono::milliseconds kSlice = std::chrono::hours(1);
        if (moment == Clock::time_point::max()) return static_cast<int>(kSlice.count());
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(moment - now);
        return static_cast<int>(std::min(left, kSlice).count());
    }

  private:
    explicit Deadline(Clock::time_point at) : moment(at) {}
    Clock::time_point moment;
};

}  // namespace tesselctl
