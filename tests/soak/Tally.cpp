#include "Tally.h"

#include <algorithm>
#include <iomanip>

void Tally::Count(const std::string& what, std::uint64_t more) {
    const std::lock_guard<std::mutex> lock(mutex);
    counts[what] += more;
}

void Tally::Set(const std::string& what, std::uint64_t count) {
    const std::lock_guard<std::mutex> lock(mutex);
    counts[what] = count;
}

std::uint64_t Tally::Of(const std::string& what) const {
    const std::lock_guard<std::mutex> lock(mutex);
    const auto found = counts.find(what);
    return found == counts.end() ? 0 : found->second;
}

void Tally::Took(const std::string& kind, std::chrono::steady_clock::duration time) {
    const std::lock_guard<std::mutex> lock(mutex);
    auto& worst = slowest[kind];
    worst = std::max(worst, time);
}

void Tally::Print(std::ostream& stream) const {
    const std::lock_guard<std::mutex> lock(mutex);
    for (const auto& [what, count] : counts) {
        stream << "  " << std::left << std::setw(44) << what << std::right << std::setw(12) << count
               << "\n";
    }
    for (const auto& [kind, time] : slowest) {
        const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(time);
        stream << "  " << std::left << std::setw(44) << "slowest answer, " + kind << std::right
               << std::setw(9) << milliseconds.count() << " ms\n";
    }
}
