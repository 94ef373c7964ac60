// The screen that a tablet's area is spread over.
//
// Units: pixels. Threads: any. Failure: a size that cannot be found out is nothing.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace driver {

struct Screen {
    int width = 0;
    int height = 0;
};

// What is assumed where no screen can be found.
constexpr Screen kUsualScreen = {1920, 1080};

// Such as "1920x1080".
std::optional<Screen> ParseScreen(std::string_view text);

// The best mode of the first screen that is connected. CARDS is where the system keeps its graphics
// cards.
std::optional<Screen> FindScreen(const std::string& cards = "/sys/class/drm");

}  // namespace driver
