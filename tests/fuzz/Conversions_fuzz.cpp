// The forms of text: UTF-8, UTF-32 and UTF-16 turn into each other without loss, what is none of
// them is refused, and everybody agrees on which is which.
//
// An input is taken as UTF-8, and, four bytes at a time, as UTF-32.
#include <CarbonCore/MacMemory.h>
#include <CoreFoundation/CoreFoundation.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CoreFoundation/UTF8.h"
#include "Require.h"
#include "core/ASCII.h"
#include "core/ConvertUTF.h"
#include "core/Helpers.h"
#include "core/Owners.h"
#include "system/Utf8Of.h"

namespace {

// What the rules say, without tables: a character has one form, the shortest, and some numbers are
// no characters.

bool IsCharacter(std::uint32_t value) {
    return value < 0x110000 && value / 0x800 != 0xD800 / 0x800;
}

std::string Form(std::uint32_t value) {
    if (value < 0x80) return std::string(1, static_cast<char>(value));
    const int following = value < 0x800 ? 1 : value < 0x10000 ? 2 : 3;
    const std::uint32_t heads[] = {0, 0xC0, 0xE0, 0xF0};
    std::string form(1, static_cast<char>(heads[following] + (value >> 6 * following)));
    for (int index = following - 1; index >= 0; --index) {
        form += static_cast<char>(0x80 + (value >> 6 * index) % 0x40);
    }
    return form;
}

struct Decoded {
    std::wstring text;
    bool isWhole = true;
};

// The number that the first LENGTH of BYTES would stand for, were they what they should be.
std::uint32_t ValueOf(std::string_view bytes, std::size_t length) {
    const auto first = static_cast<unsigned char>(bytes[0]);
    std::uint32_t value = length == 1 ? first : first & (0xFFu >> (length + 1));
    for (std::size_t index = 1; index < std::min(length, bytes.size()); ++index) {
        value = value << 6 | (static_cast<unsigned char>(bytes[index]) & 0x3Fu);
    }
    return value;
}

Decoded Decode(std::string_view bytes) {
    Decoded decoded;
    while (!bytes.empty()) {
        const auto first = static_cast<unsigned char>(bytes[0]);
        const std::size_t length = first < 0x80 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
        const std::uint32_t value = ValueOf(bytes, length);
        // Whatever it was read as, it has to be what is written for that.
        if (length > 1 && (!IsCharacter(value) || Form(value) != bytes.substr(0, length))) {
            decoded.isWhole = false;
            return decoded;
        }
        decoded.text += static_cast<wchar_t>(value);
        bytes.remove_prefix(length);
    }
    return decoded;
}

std::u16string InUTF16(const std::wstring& text) {
    std::u16string units;
    for (const wchar_t character : text) {
        const auto value = static_cast<std::uint32_t>(character);
        if (value < 0x10000) {
            units += static_cast<char16_t>(value);
        } else {
            units += static_cast<char16_t>(0xD800 + (value - 0x10000) / 0x400);
            units += static_cast<char16_t>(0xDC00 + (value - 0x10000) % 0x400);
        }
    }
    return units;
}

std::string Narrowed(const std::wstring& text) {
    std::string narrow;
    for (const wchar_t character : text) {
        narrow += static_cast<std::uint32_t>(character) < 0x80 ? static_cast<char>(character) : '?';
    }
    return narrow;
}

// How many bytes more would make the end of TEXT whole, by trying.
std::size_t Missing(const std::string& text) {
    for (std::size_t begun = 1; begun <= 3 && begun <= text.size(); ++begun) {
        for (std::size_t more = 1; more <= 4 - begun; ++more) {
            // One of these is within the range of every second byte.
            for (const char second : {'\x80', '\x90', '\xA0'}) {
                const std::string end =
                    text.substr(text.size() - begun) + second + std::string(more - 1, '\x80');
                const Decoded decoded = Decode(end);
                if (decoded.isWhole && decoded.text.size() == 1) return more;
            }
        }
    }
    return 0;
}

void LookAtUTF8(const std::string& bytes) {
    const Decoded expected = Decode(bytes);
    Require(IsUTF8(bytes) == expected.isWhole, "a text is UTF-8 or it is not");
    std::wstring target(bytes.size(), L'#');
    std::size_t count = 0;
    Require(ConvertUTF8toUTF32(bytes, target.data(), count) == expected.isWhole,
            "what is UTF-8 can be converted, and nothing else");
    Require(target.substr(0, count) == expected.text, "it is converted up to the fault");
    Require(UTF32FromUTF8(bytes) == expected.text, "the characters are those before the fault");
    std::wstring padded = expected.text;
    padded.resize(bytes.size() + 1);
    Require(
        Helpers::wstringFromUtf8(bytes) == (expected.isWhole ? padded : L"Utf8 conversion failed"),
        "a batch has its length, or says that it is none");
    Require(Helpers::utf8ToString(bytes) == Narrowed(expected.text), "a character becomes a byte");
    Require(MissingUTF8Bytes(bytes) == Missing(bytes), "it is known how much is missing");
    Require(IsASCII(bytes) == (expected.isWhole && expected.text.size() == bytes.size()),
            "a text of as many characters as bytes is ASCII");
    const std::wstring widened = Helpers::stringToWString(bytes);
    Require(widened.size() == bytes.size(), "a byte becomes a character");
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        Require(widened[index] == static_cast<unsigned char>(bytes[index]), "of the same number");
    }
    const std::u16string units = InUTF16(expected.text);
    Require(frameworks::Utf16Length(bytes) ==
                (expected.isWhole ? static_cast<CFIndex>(units.size()) : kCFNotFound),
            "the layer has the same opinion");
}

void LookAtUTF32(const std::wstring& text) {
    std::string expected;
    bool isText = true;
    for (const wchar_t unit : text) {
        isText = isText && IsCharacter(static_cast<std::uint32_t>(unit));
        if (isText) expected += Form(static_cast<std::uint32_t>(unit));
    }
    std::string encoded = "before";
    Require(ConvertUTF32toUTF8(text, encoded) == isText, "characters can be encoded");
    Require(!isText || encoded == "before" + expected, "behind what was there");
    const std::string utf8 = Helpers::wstringToUtf8(text);
    Require(utf8 == (!isText        ? "Error"
                     : text.empty() ? std::string(1, '\0')
                                    : expected),
            "a text has one form, or it is an error");
    Require(Helpers::wstringToString(text) == Narrowed(text), "a unit becomes a byte");
    if (isText && !text.empty()) {
        Require(UTF32FromUTF8(utf8) == text, "there and back nothing is lost");
    }
}

// Core Foundation's strings, whose length counts UTF-16.
void LookAtCFString(const std::wstring& text) {
    const std::wstring upToNUL = text.substr(0, text.find(L'\0'));
    const auto string = CFOwner<CFStringRef>::Adopt(Helpers::wstringToCFString(text));
    Require(bool(string), "a text makes a string");
    const std::size_t length = InUTF16(upToNUL).size();
    Require(CFStringGetLength(string.Get()) == static_cast<CFIndex>(length),
            "its length is that of its UTF-16");
    const std::optional<std::string> back = Utf8Of(string.Get());
    std::string expected;
    ConvertUTF32toUTF8(upToNUL, expected);
    Require(back == expected, "it gives back what it was made of");
    char* const copy = Helpers::copy_CFStringRefToCString(string.Get());
    const bool fits = expected.size() <= 2 * length;
    Require((copy != nullptr) == fits, "a copy has room for two bytes a unit");
    Require(!fits || copy == expected, "and is whole");
    if (copy != nullptr) DisposePtr(copy);
}

void Compare(const std::wstring& one, const std::wstring& other) {
    std::string left;
    std::string right;
    ConvertUTF32toUTF8(one, left);
    ConvertUTF32toUTF8(other, right);
    const int order = InUTF16(one).compare(InUTF16(other));
    const CFComparisonResult told = frameworks::CompareAsUtf16(left, right);
    Require((order < 0) == (told < 0) && (order > 0) == (told > 0),
            "UTF-16 decides which is first");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    LookAtUTF8(bytes);
    const std::wstring text = UTF32FromUTF8(bytes);
    LookAtUTF32(text);
    LookAtCFString(text);
    Compare(text.substr(0, text.size() / 2), text.substr(text.size() / 2));
    // Also far behind a beginning that is ASCII, which is taken in blocks.
    if (size > 0) {
        LookAtUTF8(std::string(data[0], 'a') + bytes);
    }
    std::wstring units(size / 4, L'\0');
    for (std::size_t index = 0; index < units.size(); ++index) {
        std::uint32_t unit = 0;
        for (std::size_t byte = 0; byte < 4; ++byte) {
            unit = unit << 8 | data[4 * index + byte];
        }
        units[index] = static_cast<wchar_t>(unit);
    }
    LookAtUTF32(units);
    return 0;
}
