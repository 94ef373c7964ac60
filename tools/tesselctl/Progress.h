// A line that tells people that something takes its time, and how long so far. On an output that is
// no terminal there is none.
//
// Owner: whoever waits; the line goes with it. Threads: one.
#pragma once

#include <chrono>
#include <string>

namespace tesselctl {

class Progress {
  public:
    // `work` as people call it: "installing Clock".
    explicit Progress(const std::string& work);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // To be called often; what is quick shows nothing.
    void Tick();
    // Takes the line away, for other output.
    void Clear();

  private:
    using Clock = std::chrono::steady_clock;

    const std::string what;
    const Clock::time_point start = Clock::now();
    std::size_t shown = 0;  // columns
    unsigned turn = 0;
};

// "0:07", "12:30", "1:00:00"
std::string ClockText(std::chrono::seconds time);

}  // namespace tesselctl
