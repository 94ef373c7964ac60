// How often a test does what it does: a little in every build, and as often as docs/reliability.md
// says when scripts/endurance asks for it. And the line in which a test says what it has measured.
#pragma once

#include <cstdlib>
#include <iostream>
#include <string>

#include "support/Waiting.h"

inline bool FullCounts() {
    return std::getenv("TESSEL_FULL_COUNTS") != nullptr;
}

inline int Count(int few, int all) {
    return FullCounts() ? all : kSanitized ? few / 4 + 1 : few;
}

// scripts/endurance shows these lines.
inline void Say(const std::string& figure) {
    std::cout << "figure: " << figure << std::endl;
}
