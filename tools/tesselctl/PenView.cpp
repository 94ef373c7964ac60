#include "tesselctl/PenView.h"

#include <algorithm>
#include <cmath>

namespace tesselctl {
namespace {

constexpr int kPercent = 100;

std::string Padded(std::string text, std::size_t columns) {
    text.resize(std::max(text.size(), columns), ' ');
    return text;
}

std::string RightAligned(const std::string& text, std::size_t columns) {
    return std::string(columns - std::min(columns, text.size()), ' ') + text;
}

// For lines of ASCII.
std::string Cut(std::string line, std::size_t width) {
    line.resize(std::min(line.size(), width));
    return line;
}

}  // namespace

void EventRate::GoTo(Time now) {
    const auto part =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() *
        static_cast<long long>(kParts) / 1000;
    const long long passed = std::min<long long>(part - current, kParts);
    for (long long i = 1; i <= passed; i++)
        parts[static_cast<std::size_t>((part - passed + i) % static_cast<long long>(kParts))] = 0;
    current = std::max(current, part);
}

void EventRate::Count(Time now) {
    GoTo(now);
    parts[static_cast<std::size_t>(current) % kParts]++;
}

int EventRate::PerSecond(Time now) {
    GoTo(now);
    int sum = 0;
    for (const int count : parts)
        sum += count;
    return sum;
}

void PenView::Take(const PenEvent& event, Time now) {
    switch (event.what) {
        case PenWhat::kPressure:
            pressure = event.pressure;
            break;
        case PenWhat::kDown:
        case PenWhat::kMove:
        case PenWhat::kUp:
            position = Position{event.x, event.y};
            isDown = event.what != PenWhat::kUp;
            break;
        case PenWhat::kProximity:
            proximity = event.word;
            break;
        case PenWhat::kTool:
            tool = event.word;
            break;
        case PenWhat::kOther:
            return;
    }
    rate.Count(now);
    total++;
    changed = true;
}

bool PenView::Changed(Time now) {
    return changed || rate.PerSecond(now) != shownRate;
}

std::string PenView::PressureLine(std::size_t width) const {
    const double share = std::clamp(static_cast<double>(pressure) / kFullPressure, 0.0, 1.0);
    const std::string label = "pressure   ";
    const std::string numbers = ' ' + RightAligned(std::to_string(pressure), 4) + "  " +
                                RightAligned(std::to_string(std::lround(share * kPercent)), 3) +
                                " %";
    const std::size_t taken = label.size() + numbers.size();
    if (width <= taken) return Cut(label + numbers, width);
    return label + Bar(share, width - taken, drawsBlocks) + numbers;
}

std::string PenView::Picture(std::size_t width, Time now) {
    changed = false;
    shownRate = rate.PerSecond(now);
    const std::string where =
        position ? std::to_string(position->x) + ", " + std::to_string(position->y) : "-";
    const std::string second = "tool       " + Padded(tool, 10) + "proximity  " +
                               Padded(proximity, 10) + "position  " + Padded(where, 14) +
                               (isDown ? "down" : "up");
    const std::string third = "events     " + Padded(std::to_string(shownRate) + "/s", 10) +
                              "in all     " + Padded(std::to_string(total), 10) +
                              "Control-C ends it";
    return PressureLine(width) + '\n' + Cut(second, width) + '\n' + Cut(third, width);
}

std::string Bar(double share, std::size_t columns, bool blocks) {
    constexpr std::size_t kSteps = 8;
    constexpr const char* kPartOf[kSteps] = {" ",      "\u258F", "\u258E", "\u258D",
                                             "\u258C", "\u258B", "\u258A", "\u2589"};
    constexpr const char* kWhole = "\u2588";
    const auto steps =
        static_cast<std::size_t>(std::lround(share * static_cast<double>(columns * kSteps)));
    if (!blocks) {
        const std::size_t filled = (steps + kSteps / 2) / kSteps;
        return std::string(filled, '#') + std::string(columns - filled, '.');
    }
    const std::size_t filled = steps / kSteps;
    std::string bar;
    for (std::size_t i = 0; i < filled; i++)
        bar += kWhole;
    if (filled == columns) return bar;
    return bar + kPartOf[steps % kSteps] + std::string(columns - filled - 1, ' ');
}

}  // namespace tesselctl
