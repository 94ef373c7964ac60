// Whether the run is still good, and the first reason why it is not. Threads: all.
#pragma once

#include <atomic>
#include <mutex>
#include <string>

class Verdict {
  public:
    // The first reason is kept, and the run ends.
    void Fail(const std::string& reason);
    bool Failed() const { return failed; }
    std::string Reason() const;

    // The run is over, for whichever reason.
    void End() { ended = true; }
    bool Ended() const { return ended || failed; }

  private:
    mutable std::mutex mutex;
    std::string firstReason;
    std::atomic<bool> failed{false};
    std::atomic<bool> ended{false};
};
