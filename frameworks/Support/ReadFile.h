// A small file as a whole: what /proc, /etc and the like hold, or what people have put on the disk.
//
// Threads: any. Failure: nothing, with errno, when the file cannot be read to its end.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace frameworks {

std::optional<std::string> ReadFile(const char* path);

// Only a regular file (a pipe would keep the reader waiting), and only when it holds no more than
// MOST bytes; EFBIG otherwise.
std::optional<std::string> ReadRegularFile(const char* path, std::size_t most);

}  // namespace frameworks
