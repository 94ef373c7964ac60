// Time in nanoseconds.
#pragma once

#include <sys/types.h>
#include <time.h>

#include <cstdint>

std::int64_t Now();

// How long a process, all its threads together, has been on a processor, in user and kernel mode:
// the scheduler's own count, not one of clock ticks.
class ProcessClock {
  public:
    explicit ProcessClock(pid_t process);
    std::int64_t Read() const;

  private:
    clockid_t clock;
};

class Deadline {
  public:
    explicit Deadline(std::int64_t milliseconds) : end(Now() + milliseconds * 1000000) {}
    bool IsOver(std::int64_t now) const { return now >= end; }
    bool IsOver() const { return IsOver(Now()); }

  private:
    std::int64_t end;
};
