// The tablets among the input devices, as the system tells everybody of them, whether or not they
// may be read.
//
// Threads: one. Failure: what is not told is not there.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace driver {

struct FoundTablet {
    // The device's folder in /sys, which stands for it.
    std::string folder;
    // What is opened.
    std::string node;
    std::string name;
};

// The tablet whose event device has this folder, such as ".../input5/event5"; nothing when it is no
// tablet.
std::optional<FoundTablet> TabletAt(const std::string& folder);

// In the order of their numbers.
std::vector<FoundTablet> FindTablets();

// Why the device cannot be read, for people: the error, and what to do about it.
std::string WhyUnreadable(const std::string& node, int error);

// Whether the number BIT is set in what the system says of a device's codes: hexadecimal words, the
// highest first.
bool HasCode(std::string_view words, unsigned bit);

}  // namespace driver
