#include "tesselctl/Utf8.h"

namespace tesselctl {
namespace {

// What may follow a lead byte: how many bytes, and between which bounds the first of them lies. The
// bounds are what keeps overlong forms, surrogates and too large values out.
struct Sequence {
    std::size_t length;
    unsigned char lowest;
    unsigned char highest;
};

Sequence SequenceOf(unsigned char lead) {
    if (lead < 0x80) return {1, 0, 0};
    if (lead >= 0xC2 && lead <= 0xDF) return {2, 0x80, 0xBF};
    if (lead == 0xE0) return {3, 0xA0, 0xBF};
    if (lead == 0xED) return {3, 0x80, 0x9F};
    if (lead >= 0xE1 && lead <= 0xEF) return {3, 0x80, 0xBF};
    if (lead == 0xF0) return {4, 0x90, 0xBF};
    if (lead >= 0xF1 && lead <= 0xF3) return {4, 0x80, 0xBF};
    if (lead == 0xF4) return {4, 0x80, 0x8F};
    return {0, 0, 0};
}

}  // namespace

std::size_t FindInvalidUtf8(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        const Sequence sequence = SequenceOf(static_cast<unsigned char>(text[at]));
        if (sequence.length == 0 || sequence.length > text.size() - at) return at;
        for (std::size_t i = 1; i < sequence.length; i++) {
            const auto byte = static_cast<unsigned char>(text[at + i]);
            const unsigned char lowest = i == 1 ? sequence.lowest : 0x80;
            const unsigned char highest = i == 1 ? sequence.highest : 0xBF;
            if (byte < lowest || byte > highest) return at;
        }
        at += sequence.length;
    }
    return std::string_view::npos;
}

}  // namespace tesselctl
