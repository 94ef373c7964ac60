// What "tesselctl log" is asked for.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "tesselctl/Arguments.h"

namespace tesselctl {

struct LogRequest {
    bool follow = false;
    bool enable = false;
    std::optional<std::size_t> lines = 20;  // nothing for all of them
};

// What is wrong, or an empty text.
std::string ParseLog(Arguments& arguments, LogRequest& log);

}  // namespace tesselctl
