#include "driver/Screen.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <vector>

namespace driver {
namespace {

constexpr int kLargest = 1 << 16;

// Takes a number of pixels off the front of TEXT.
bool TakeNumber(std::string_view& text, int& number) {
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    if (result.ec != std::errc() || number < 1 || number > kLargest) return false;
    text.remove_prefix(static_cast<std::size_t>(result.ptr - text.data()));
    return true;
}

bool TakeScreen(std::string_view& text, Screen& screen) {
    if (!TakeNumber(text, screen.width) || text.empty() || text.front() != 'x') return false;
    text.remove_prefix(1);
    return TakeNumber(text, screen.height);
}

std::string FirstLine(const std::filesystem::path& file) {
    std::ifstream stream(file);
    std::string line;
    std::getline(stream, line);
    return line;
}

}  // namespace

std::optional<Screen> ParseScreen(std::string_view text) {
    Screen screen;
    if (!TakeScreen(text, screen) || !text.empty()) return std::nullopt;
    return screen;
}

std::optional<Screen> FindScreen(const std::string& cards) {
    std::error_code error;
    std::vector<std::filesystem::path> connectors;
    for (const auto& entry : std::filesystem::directory_iterator(cards, error)) {
        connectors.push_back(entry.path());
    }
    std::sort(connectors.begin(), connectors.end());
    for (const std::filesystem::path& connector : connectors) {
        if (FirstLine(connector / "status") != "connected") continue;
        // The modes are listed from the best one down; some names go on, as in "1920x1080i".
        const std::string mode = FirstLine(connector / "modes");
        std::string_view text = mode;
        Screen screen;
        if (TakeScreen(text, screen)) return screen;
    }
    return std::nullopt;
}

}  // namespace driver
