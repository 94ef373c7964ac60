// Strict UTF-8: the only text that the service takes.
#pragma once

#include <cstddef>
#include <string_view>

namespace tesselctl {

// The offset of the first byte that does not belong to well-formed UTF-8, or npos. Overlong forms,
// surrogates and values above U+10FFFF are not well-formed.
std::size_t FindInvalidUtf8(std::string_view text);

}  // namespace tesselctl
