// One thing that an input device says, live or recorded, with the kernel's numbers for type and
// code.
#pragma once

#include <cstdint>

namespace driver {

struct Event {
    // Since some moment in the past. For recordings.
    std::int64_t microseconds = 0;
    std::uint16_t type = 0;
    std::uint16_t code = 0;
    std::int32_t value = 0;
};

}  // namespace driver
