// An image in the form of a PNG file.
//
// Threads: any. Failure: nothing, when the library is not there or memory runs out.
#pragma once

#include <optional>
#include <string>

#include "CoreGraphics/Image.h"

namespace frameworks {

// Each pixel as it is in the image, its alpha as well.
std::optional<std::string> EncodePNG(const CGImage& image);

}  // namespace frameworks
