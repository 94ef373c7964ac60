// What all conversions of texts have in common: ASCII is the same number in all of them, and most
// texts are ASCII from their first character to their last.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

// All units of a block, one bit over the other. The four parts of the block at the same time: none
// of them has to wait for another.
template <std::size_t kBlock, typename Unit>
std::uint32_t BitsOf(const Unit* block) {
    constexpr std::size_t kPart = kBlock / 4;
    Unit bits[4] = {};
    for (std::size_t i = 0; i < kPart; ++i) {
        bits[0] = static_cast<Unit>(bits[0] | block[i]);
        bits[1] = static_cast<Unit>(bits[1] | block[i + kPart]);
        bits[2] = static_cast<Unit>(bits[2] | block[i + 2 * kPart]);
        bits[3] = static_cast<Unit>(bits[3] | block[i + 3 * kPart]);
    }
    return static_cast<std::uint32_t>(bits[0] | bits[1] | bits[2] | bits[3]);
}

// How many units at the beginning are in blocks that are all ASCII.
template <std::size_t kBlock, typename Unit>
std::size_t ASCIIBlocks(const Unit* text, std::size_t size) {
    std::size_t count = 0;
    while (size - count >= kBlock && BitsOf<kBlock>(text + count) < 0x80) {
        count += kBlock;
    }
    return count;
}

// How many units at the beginning are ASCII. Looking at a block's outcome costs more than a few of
// its units, so a long text is taken in large ones.
template <typename Unit>
std::size_t LengthOfASCII(const Unit* text, std::size_t size) {
    std::size_t count = ASCIIBlocks<2048>(text, size);
    count += ASCIIBlocks<64>(text + count, size - count);
    while (count < size && static_cast<std::uint32_t>(text[count]) < 0x80) {
        ++count;
    }
    return count;
}

// Copies ASCII up to the first unit that is none, and says how many units these are. By way of a
// block of its own: the compiler need not fear that the two texts overlap, and takes many units at
// once.
template <typename From, typename To>
std::size_t CopyASCII(const From* source, std::size_t size, To* target) {
    constexpr std::size_t kBlock = 64;
    const std::size_t count = LengthOfASCII(source, size);
    std::size_t copied = 0;
    for (; count - copied >= kBlock; copied += kBlock) {
        To block[kBlock];
        for (std::size_t i = 0; i < kBlock; ++i) {
            block[i] = static_cast<To>(source[copied + i]);
        }
        std::memcpy(target + copied, block, sizeof block);
    }
    for (; copied < count; ++copied) {
        target[copied] = static_cast<To>(source[copied]);
    }
    return count;
}

inline bool IsASCII(std::string_view text) {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
    return LengthOfASCII(bytes, text.size()) == text.size();
}
