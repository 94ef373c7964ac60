// Pictures as PNG files. It is the only file that knows the library for them.
#pragma once

#include <cstdio>
#include <string>

#include "tesselctl/Canvas.h"

namespace tesselctl {

// What went wrong, or an empty text.
std::string WritePng(const Canvas& picture, std::FILE* file);

}  // namespace tesselctl
