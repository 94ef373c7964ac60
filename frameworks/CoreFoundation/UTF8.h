// What Core Foundation's strings ask of UTF-8: is it well-formed, how long is it in UTF-16, which
// text sorts first.
//
// Strict: overlong forms, surrogates, values above U+10FFFF and cut sequences are malformed.
#pragma once

#include <CoreFoundation/CFBase.h>

#include <string_view>

namespace frameworks {

// The number of UTF-16 units that TEXT takes, or kCFNotFound when TEXT is malformed. One pass over
// the text.
constexpr CFIndex Utf16Length(std::string_view text) {
    CFIndex units = 0;
    std::size_t position = 0;
    const auto byteAt = [text](std::size_t index) { return static_cast<UInt8>(text[index]); };
    while (position < text.size()) {
        const UInt8 lead = byteAt(position);
        if (lead < 0x80) {
            ++position;
            ++units;
            continue;
        }
        std::size_t size = 0;
        // The second byte's limits are what keeps overlong forms, surrogates and too large values
        // out.
        UInt8 lowest = 0x80;
        UInt8 highest = 0xBF;
        if (lead >= 0xC2 && lead <= 0xDF) {
            size = 2;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            size = 3;
            lowest = lead == 0xE0 ? 0xA0 : lowest;
            highest = lead == 0xED ? 0x9F : highest;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            size = 4;
            lowest = lead == 0xF0 ? 0x90 : lowest;
            highest = lead == 0xF4 ? 0x8F : highest;
        } else {
            return kCFNotFound;
        }
        if (text.size() - position < size || byteAt(position + 1) < lowest ||
            byteAt(position + 1) > highest) {
            return kCFNotFound;
        }
        for (std::size_t next = 2; next < size; ++next) {
            if ((byteAt(position + next) & 0xC0) != 0x80) {
                return kCFNotFound;
            }
        }
        position += size;
        units += size == 4 ? 2 : 1;
    }
    return units;
}

// Compares by UTF-16 units, which is how Core Foundation orders texts: U+FFFD comes after U+1F600,
// though its code is smaller and so are its UTF-8 bytes. Both texts must be well-formed.
CFComparisonResult CompareAsUtf16(std::string_view one, std::string_view other);

}  // namespace frameworks
