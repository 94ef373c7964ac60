// What one message of the pressure server says about the pen.
#pragma once

#include <string>
#include <string_view>

namespace tesselctl {

enum class PenWhat {
    kPressure,
    kDown,
    kMove,  // while it is down
    kUp,
    kProximity,
    kTool,
    kOther  // nothing about the pen
};

struct PenEvent {
    PenWhat what = PenWhat::kOther;
    int pressure = 0;  // of kPressure: 0 to 511
    int x = 0;         // of kDown, kMove and kUp: pixels of the screen
    int y = 0;
    std::string word;  // of kProximity "in", "out" or "unknown"; of kTool "pen", "eraser" or
                       // "unknown"; of kOther the message
};

constexpr int kFullPressure = 511;

PenEvent ReadPenEvent(std::string_view message);

// The event as a line for people, and as a JSON object; neither with its line feed. `time` is in
// microseconds.
std::string PenLine(const PenEvent& event);
std::string PenJson(const PenEvent& event, long long time);

}  // namespace tesselctl
