// A file that is whole or as it was: what is new is written beside it and takes its name at the
// end.
#pragma once

#include <cstdio>
#include <functional>
#include <string>

namespace tesselctl {

// Why no file can be put at this path, or an empty text; nothing is changed. Only a regular file is
// ever replaced.
std::string WhyNotReplaceable(const std::string& path);

// `write` gives what went wrong, or an empty text, and so does this.
std::string ReplaceFile(const std::string& path,
                        const std::function<std::string(std::FILE*)>& write);

}  // namespace tesselctl
