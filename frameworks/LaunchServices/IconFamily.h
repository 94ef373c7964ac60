// The format of icon files: a head of eight bytes, 'icns' and the size of everything, and elements
// with a head of eight bytes each, type and size. All numbers are big-endian.
//
// Threads: any. Failure: false, or nothing, for what is too short, too long or malformed.
#pragma once

#include <CarbonCore/MacTypes.h>

#include <optional>
#include <string>
#include <string_view>

namespace frameworks {

// 128 by 128 pixels of four bytes: alpha, red, green, blue.
constexpr std::size_t kThumbnailPixels = std::size_t{128} * 128;
constexpr std::size_t kThumbnailBytes = 4 * kThumbnailPixels;

// Whether the elements fill BYTES exactly.
bool IsIconFamily(std::string_view bytes);

// The contents of the first element of that type in a family; nothing when there is none.
std::optional<std::string_view> IconElement(std::string_view family, OSType type);

// The pixels of an 'it32' element, whose contents are either the pixels as they are, or four bytes
// of 0 and then each colour by itself, packed: a byte below 128 is followed by as many bytes as
// they are, and one more; a byte from 128 on by one that stands for that many less 125. Packed ones
// know no alpha and become opaque.
std::optional<std::string> ThumbnailPixels(std::string_view element);

}  // namespace frameworks
