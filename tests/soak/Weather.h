// Whether the service may refuse right now. Some faults take from it what it needs for its work
// (descriptors, room on the disk, the right to write), and while one of them holds, a refusal is a
// right answer. The other faults excuse nothing. One fault at a time. Threads: all.
#pragma once

#include <atomic>
#include <cstdint>
#include <shared_mutex>

class Weather {
  public:
    // Even in fair weather.
    using Mark = std::uint64_t;

    Mark Now() const { return changes; }
    // It was fair then, and has been so ever since.
    bool FairSince(Mark then) const { return then % 2 == 0 && changes == then; }

    // Held, shared, by what would take minutes if it were refused something.
    std::shared_mutex& NeedsFairWeather() { return mutex; }

    void TurnBad() {
        mutex.lock();
        ++changes;
    }
    void TurnFair() {
        ++changes;
        mutex.unlock();
    }

  private:
    std::atomic<Mark> changes{0};
    std::shared_mutex mutex;
};
