#include "CoreFoundation/UTF8.h"

#include <algorithm>

namespace frameworks {

namespace {

// Bytes 0xEE and 0xEF lead U+E000..U+FFFF, which in UTF-16 come after the surrogates that stand for
// what 0xF0 and above lead.
int Utf16Rank(char byte) {
    const int value = static_cast<UInt8>(byte);
    return value == 0xEE || value == 0xEF ? value + 0x10 : value;
}

}  // namespace

CFComparisonResult CompareAsUtf16(std::string_view one, std::string_view other) {
    const auto [left, right] = std::mismatch(one.begin(), one.end(), other.begin(), other.end());
    if (left == one.end()) {
        return right == other.end() ? kCFCompareEqualTo : kCFCompareLessThan;
    }
    if (right == other.end()) {
        return kCFCompareGreaterThan;
    }
    return Utf16Rank(*left) < Utf16Rank(*right) ? kCFCompareLessThan : kCFCompareGreaterThan;
}

}  // namespace frameworks
