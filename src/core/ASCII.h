// What all conversions of texts have in common: ASCII is the same number in all of them, and most
// texts are ASCII from their first character to their last.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

// Copies the blocks that are all ASCII, up to the first that is not, and says how many units these
// are. By way of a block of its own: the compiler need not fear that the two texts overlap, and
// takes many units at once.
template <std::size_t kBlock, typename From, typename To>
std::size_t CopyASCIIBlocks(const From* source, std::size_t size, To* target) {
    std::size_t count = 0;
    for (; size - count >= kBlock; count += kBlock) {
        From all = 0;
        for (std::size_t i = 0; i < kBlock; ++i) {
            all = static_cast<From>(all | source[count + i]);
        }
        if (static_cast<std::uint32_t>(all) >= 0x80) {
            break;
        }
        To block[kBlock];
        for (std::size_t i = 0; i < kBlock; ++i) {
            block[i] = static_cast<To>(source[count + i]);
        }
        std::memcpy(target + count, block, sizeof block);
    }
    return count;
}

// Copies ASCII up to the first unit that is none, and says how many units these are. Looking at a
// block's outcome costs more than a few of its units, so a long text is taken in large ones.
template <typename From, typename To>
std::size_t CopyASCII(const From* source, std::size_t size, To* target) {
    std::size_t count = CopyASCIIBlocks<512>(source, size, target);
    count += CopyASCIIBlocks<64>(source + count, size - count, target + count);
    while (count < size && static_cast<std::uint32_t>(source[count]) < 0x80) {
        target[count] = static_cast<To>(source[count]);
        ++count;
    }
    return count;
}

// The first of the blocks from NEXT on that is not all ASCII, or what is left behind the last one.
template <std::ptrdiff_t kBlock>
const unsigned char* SkipASCIIBlocks(const unsigned char* next, const unsigned char* end) {
    for (; end - next >= kBlock; next += kBlock) {
        unsigned char all = 0;
        for (std::ptrdiff_t i = 0; i < kBlock; ++i) {
            all = static_cast<unsigned char>(all | next[i]);
        }
        if (all >= 0x80) {
            break;
        }
    }
    return next;
}

// The first byte from NEXT on that is not ASCII, or END.
inline const unsigned char* SkipASCII(const unsigned char* next, const unsigned char* end) {
    next = SkipASCIIBlocks<1024>(next, end);
    next = SkipASCIIBlocks<64>(next, end);
    while (next != end && *next < 0x80) {
        ++next;
    }
    return next;
}

inline bool IsASCII(std::string_view text) {
    const auto* const begin = reinterpret_cast<const unsigned char*>(text.data());
    const unsigned char* const end = begin + text.size();
    return SkipASCII(begin, end) == end;
}
