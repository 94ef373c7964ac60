// What all conversions of texts have in common: ASCII is the same number in all of them, and most
// texts are ASCII from their first character to their last.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

// Copies ASCII up to the first unit that is none, and says how many units these are. A block at a
// time, by way of a block of its own: the compiler need not fear that the two texts overlap, and
// takes many units at once.
template <typename From, typename To>
std::size_t CopyASCII(const From* source, std::size_t size, To* target) {
    constexpr std::size_t kBlock = 64;
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
    while (count < size && static_cast<std::uint32_t>(source[count]) < 0x80) {
        target[count] = static_cast<To>(source[count]);
        ++count;
    }
    return count;
}

inline bool IsASCII(const std::string& text) {
    constexpr std::size_t kBlock = 64;
    std::size_t at = 0;
    unsigned char all = 0;
    for (; text.size() - at >= kBlock && all < 0x80; at += kBlock) {
        for (std::size_t i = 0; i < kBlock; ++i) {
            all = static_cast<unsigned char>(all | static_cast<unsigned char>(text[at + i]));
        }
    }
    while (at < text.size() && all < 0x80) {
        all = static_cast<unsigned char>(text[at++]);
    }
    return all < 0x80;
}
