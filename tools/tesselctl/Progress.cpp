#include "tesselctl/Progress.h"

#include <algorithm>
#include <cstdio>

#include "tesselctl/Answer.h"
#include "tesselctl/Terminal.h"

namespace tesselctl {

Progress::Progress(const std::string& work) : what(OneLine(work, 200)) {}

Progress::~Progress() {
    Clear();
}

void Progress::Tick() {
    constexpr std::chrono::milliseconds kQuick{300};
    constexpr char kSigns[] = {'|', '/', '-', '\\'};
    const auto passed = Clock::now() - start;
    if (passed < kQuick || !OutputIsTerminal()) return;
    std::string line = std::string(1, kSigns[turn++ % sizeof kSigns]) + ' ' + what + "  " +
                       ClockText(std::chrono::duration_cast<std::chrono::seconds>(passed));
    line.resize(std::min(line.size(), TerminalWidth() - 1));
    const std::size_t length = line.size();
    line.resize(std::max(length, shown), ' ');
    shown = length;
    Say('\r' + line);
}

void Progress::Clear() {
    if (shown == 0) return;
    Say('\r' + std::string(shown, ' ') + '\r');
    shown = 0;
}

std::string ClockText(std::chrono::seconds time) {
    const long long seconds = time.count();
    char text[40];
    if (seconds < 3600)
        std::snprintf(text, sizeof text, "%lld:%02lld", seconds / 60, seconds % 60);
    else
        std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", seconds / 3600, seconds / 60 % 60,
                      seconds % 60);
    return text;
}

}  // namespace tesselctl
