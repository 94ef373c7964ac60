// What the run has done so far, counted by name, and how long answers took. Threads: all.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <ostream>
#include <string>

class Tally {
  public:
    void Count(const std::string& what, std::uint64_t more = 1);
    void Set(const std::string& what, std::uint64_t count);
    std::uint64_t Of(const std::string& what) const;
    // How long the answer to a question of that kind took.
    void Took(const std::string& kind, std::chrono::steady_clock::duration time);
    void Print(std::ostream& stream) const;

  private:
    mutable std::mutex mutex;
    std::map<std::string, std::uint64_t> counts;
    std::map<std::string, std::chrono::steady_clock::duration> slowest;
};
