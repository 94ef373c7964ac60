#include "driver/Say.h"

#include <cstdio>

namespace driver {

void Say(const std::string& text) {
    // NOLINTNEXTLINE(cert-err33-c): there is no other place to say that it cannot be said
    std::fprintf(stderr, "StylusPadDriver: %s\n", text.c_str());
}

}  // namespace driver
