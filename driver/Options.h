// The command line.
//
// Threads: any. Failure: a message for people.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "driver/Screen.h"

namespace driver {

extern const std::string_view kHelp;

struct Options {
    // Empty: the tablets that are there.
    std::string recording;
    // Nothing: as fast as it goes.
    std::optional<double> speed = 1.0;
    std::size_t taps = 1;
    // Nothing: to be found out.
    std::optional<Screen> screen;
    bool lists = false;
    bool helps = false;
    bool tellsVersion = false;

    // Empty when all is well.
    std::string problem;
};

// WORDS are those behind the program's name.
Options ParseOptions(const std::vector<std::string_view>& words);

}  // namespace driver
