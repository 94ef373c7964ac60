#include "core/ConvertUTF.h"

#include <cstdint>

#include "core/ASCII.h"

namespace {

constexpr std::uint32_t kLastCharacter = 0x10FFFF;

bool IsCharacter(std::uint32_t value) {
    return value <= kLastCharacter && (value < 0xD800 || value > 0xDFFF);
}

// The length of the sequence that FIRST opens, 0 when no sequence begins with it.
std::size_t SequenceLength(unsigned char first) {
    if (first < 0x80) {
        return 1;
    }
    if (first < 0xC2) {
        return 0;
    }
    if (first < 0xE0) {
        return 2;
    }
    if (first < 0xF0) {
        return 3;
    }
    return first < 0xF5 ? 4 : 0;
}

bool IsContinuation(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

// The second byte's range is narrower where the full one would allow overlong forms, surrogates or
// values past the last character.
bool IsSecondByte(unsigned char first, unsigned char second) {
    switch (first) {
        case 0xE0:
            return second >= 0xA0 && second <= 0xBF;
        case 0xED:
            return second >= 0x80 && second <= 0x9F;
        case 0xF0:
            return second >= 0x90 && second <= 0xBF;
        case 0xF4:
            return second >= 0x80 && second <= 0x8F;
        default:
            return IsContinuation(second);
    }
}

wchar_t Decode(const unsigned char* source, std::size_t length) {
    static constexpr unsigned char kFirstByteBits[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
    std::uint32_t value = source[0] & kFirstByteBits[length];
    for (std::size_t i = 1; i < length; ++i) {
        value = value << 6 | (source[i] & 0x3Fu);
    }
    return static_cast<wchar_t>(value);
}

// Appends VALUE, which is not ASCII; false when it is no character.
bool Encode(std::uint32_t value, std::string& target) {
    if (!IsCharacter(value)) {
        return false;
    }
    int continuations = 1;
    if (value < 0x800) {
        target.push_back(static_cast<char>(0xC0 | value >> 6));
    } else if (value < 0x10000) {
        continuations = 2;
        target.push_back(static_cast<char>(0xE0 | value >> 12));
    } else {
        continuations = 3;
        target.push_back(static_cast<char>(0xF0 | value >> 18));
    }
    while (continuations-- > 0) {
        target.push_back(static_cast<char>(0x80 | (value >> (6 * continuations) & 0x3F)));
    }
    return true;
}

}  // namespace

bool isLegalUTF8(const unsigned char* source, std::size_t length) {
    if (length == 0 || SequenceLength(source[0]) != length) {
        return false;
    }
    if (length > 1 && !IsSecondByte(source[0], source[1])) {
        return false;
    }
    for (std::size_t i = 2; i < length; ++i) {
        if (!IsContinuation(source[i])) {
            return false;
        }
    }
    return true;
}

std::wstring UTF32FromUTF8(std::string_view source) {
    std::wstring result(source.size(), L'\0');
    std::size_t count = 0;
    ConvertUTF8toUTF32(source, &result[0], count);
    result.resize(count);
    return result;
}

bool IsUTF8(std::string_view text) {
    const auto* next = reinterpret_cast<const unsigned char*>(text.data());
    const unsigned char* const end = next + text.size();
    while ((next += LengthOfASCII(next, static_cast<std::size_t>(end - next))) != end) {
        const std::size_t length = SequenceLength(*next);
        if (length > static_cast<std::size_t>(end - next) || !isLegalUTF8(next, length)) {
            return false;
        }
        next += length;
    }
    return true;
}

bool ConvertUTF8toUTF32(std::string_view source, wchar_t* target, std::size_t& count) {
    const auto* next = reinterpret_cast<const unsigned char*>(source.data());
    const unsigned char* const end = next + source.size();
    count = 0;
    while (next != end) {
        const std::size_t ascii =
            CopyASCII(next, static_cast<std::size_t>(end - next), target + count);
        count += ascii;
        next += ascii;
        if (next == end) {
            break;
        }
        const std::size_t length = SequenceLength(*next);
        if (length > static_cast<std::size_t>(end - next) || !isLegalUTF8(next, length)) {
            return false;
        }
        target[count++] = Decode(next, length);
        next += length;
    }
    return true;
}

bool ConvertUTF32toUTF8(const std::wstring& source, std::string& target) {
    const std::size_t before = target.size();
    target.resize(before + source.size());
    const std::size_t ascii = CopyASCII(source.data(), source.size(), &target[before]);
    target.resize(before + ascii);
    for (std::size_t at = ascii; at < source.size(); ++at) {
        // NOLINTNEXTLINE(bugprone-signed-char-misuse,cert-str34-c): a wchar_t has 32 bits
        const auto value = static_cast<std::uint32_t>(source[at]);
        if (value < 0x80) {
            target.push_back(static_cast<char>(value));
        } else if (!Encode(value, target)) {
            return false;
        }
    }
    return true;
}

std::size_t MissingUTF8Bytes(const std::string& text) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    std::size_t begun = 0;
    while (begun < text.size() && begun < 4) {
        ++begun;
        const unsigned char byte = bytes[text.size() - begun];
        if (!IsContinuation(byte)) {
            const std::size_t length = SequenceLength(byte);
            const bool broken = begun > 1 && !IsSecondByte(byte, bytes[text.size() - begun + 1]);
            return length > begun && !broken ? length - begun : 0;
        }
    }
    return 0;
}
