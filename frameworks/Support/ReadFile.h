// A small file as a whole: what /proc, /etc and the like hold.
//
// Threads: any. Failure: nothing, with errno, when the file cannot be read to its end.
#pragma once

#include <optional>
#include <string>

namespace frameworks {

std::optional<std::string> ReadFile(const char* path);

}  // namespace frameworks
