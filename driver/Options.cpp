#include "driver/Options.h"

#include <charconv>
#include <cmath>

#include "driver/TapServer.h"

namespace driver {

const std::string_view kHelp =
    "StylusPadDriver reads pen tablets and posts what their pens do to whoever taps it.\n"
    "\n"
    "Usage: StylusPadDriver [OPTION...]\n"
    "  --screen WxH    the screen that a tablet covers; otherwise the first one that is connected\n"
    "  --list          show the tablets, and whether they can be read\n"
    "  --replay FILE   play what evemu-record has recorded, instead of reading tablets\n"
    "  --speed N|max   play it N times as fast, or as fast as it goes\n"
    "  --taps N        play it when N have tapped this process (1; 64 at the most)\n"
    "  --version       show the version\n"
    "  --help          show this\n"
    "\n"
    "Whoever runs it must be allowed to read the devices in /dev/input: by a rule for udev, or by\n"
    "being in their group, usually \"input\". StylusPadDriver(1) tells more.\n";

namespace {

template <typename T>
bool ParseNumber(std::string_view text, T& number) {
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    return result.ec == std::errc() && result.ptr == end;
}

bool ParseSpeed(std::string_view text, std::optional<double>& speed) {
    if (text == "max") {
        speed.reset();
        return true;
    }
    double number = 0;
    if (!ParseNumber(text, number) || !std::isfinite(number) || number <= 0) return false;
    speed = number;
    return true;
}

bool SetValue(std::string_view option, std::string_view value, Options& options) {
    if (option == "--replay") {
        options.recording = value;
        return !value.empty();
    }
    if (option == "--speed") return ParseSpeed(value, options.speed);
    if (option == "--taps") {
        return ParseNumber(value, options.taps) && options.taps <= TapServer::kMostTaps;
    }
    options.screen = ParseScreen(value);
    return options.screen.has_value();
}

bool TakesValue(std::string_view option) {
    return option == "--replay" || option == "--speed" || option == "--taps" ||
           option == "--screen";
}

bool SetFlag(std::string_view option, Options& options) {
    if (option == "--list") {
        options.lists = true;
    } else if (option == "--help") {
        options.helps = true;
    } else if (option == "--version") {
        options.tellsVersion = true;
    } else {
        return false;
    }
    return true;
}

}  // namespace

Options ParseOptions(const std::vector<std::string_view>& words) {
    Options options;
    for (auto word = words.begin(); word != words.end(); ++word) {
        // "--speed 2" and "--speed=2" are the same.
        const std::size_t equals = word->find('=');
        const std::string_view option = word->substr(0, equals);
        if (TakesValue(option)) {
            const bool isNext = equals == std::string_view::npos;
            if (isNext && std::next(word) == words.end()) {
                options.problem = std::string(option) + " needs a value";
                return options;
            }
            const std::string_view value = isNext ? *++word : word->substr(equals + 1);
            if (!SetValue(option, value, options)) {
                options.problem =
                    std::string(option) + ": not a value for it: " + std::string(value);
                return options;
            }
        } else if (!SetFlag(*word, options)) {
            options.problem = "there is no option " + std::string(*word);
            return options;
        }
    }
    return options;
}

}  // namespace driver
