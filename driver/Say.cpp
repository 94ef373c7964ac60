#include "driver/Say.h"

#include <cstdio>

namespace driver {

void Say(const std::string& text) {
    std::fprintf(stderr, "StylusPadDriver: %s\n", text.c_str());
}

}  // namespace driver
