// The pen as people see it at a terminal: a few lines that are written over again and again.
//
// Owner: "tesselctl pen". Threads: one. Time comes from the caller.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include "tesselctl/PenEvent.h"

namespace tesselctl {

// How many events the last second has seen.
class EventRate {
  public:
    using Time = std::chrono::steady_clock::time_point;

    void Count(Time now);
    int PerSecond(Time now);

  private:
    void GoTo(Time now);

    static constexpr std::size_t kParts = 10;
    std::array<int, kParts> parts{};
    long long current = 0;  // the number of the part that is being counted
};

class PenView {
  public:
    using Time = EventRate::Time;

    // How many lines a picture has.
    static constexpr int kLines = 3;

    // `blocks`: whether the terminal shows UTF-8.
    explicit PenView(bool blocks) : drawsBlocks(blocks) {}

    void Take(const PenEvent& event, Time now);

    // Whether another picture would differ from the last one.
    bool Changed(Time now);
    void Redraw() { changed = true; }
    // Whether the last picture stays true as long as no event comes.
    bool IsQuiet() const { return !changed && shownRate == 0; }

    // kLines lines without a line feed at the end, none longer than `width` columns.
    std::string Picture(std::size_t width, Time now);

  private:
    struct Position {
        int x;
        int y;
    };

    std::string PressureLine(std::size_t width) const;

    const bool drawsBlocks;
    int pressure = 0;
    std::string tool = "-";
    std::string proximity = "-";
    std::optional<Position> position;
    bool isDown = false;
    long long total = 0;
    EventRate rate;
    bool changed = true;
    int shownRate = 0;
};

// A bar of so many columns, filled by the share of the whole; in steps of an eighth of a column
// with blocks.
std::string Bar(double share, std::size_t columns, bool blocks);

}  // namespace tesselctl
