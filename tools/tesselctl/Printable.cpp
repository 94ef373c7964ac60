#include "tesselctl/Printable.h"

#include <cstdint>
#include <cstdio>

#include "tesselctl/Utf8.h"

namespace tesselctl {
namespace {

struct Character {
    std::uint32_t value;
    std::size_t length;  // in bytes
    bool valid;          // else the value is that of one byte
};

Character FirstOf(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text[0]);
    if (lead < 0x80) return {lead, 1, true};
    const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    const std::string_view bytes = text.substr(0, length);
    if (bytes.size() < length || FindInvalidUtf8(bytes) != std::string_view::npos)
        return {lead, 1, false};
    std::uint32_t value = lead & (0x7FU >> length);
    for (const char byte : bytes.substr(1))
        value = value << 6 | (static_cast<unsigned char>(byte) & 0x3FU);
    return {value, length, true};
}

std::string Formatted(const char* form, std::uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, form, static_cast<unsigned>(value));
    return text;
}

std::string Escaped(std::uint32_t value) {
    constexpr std::uint32_t kBeyond = 0x10000;
    if (value < kBeyond) return Formatted("\\u%04x", value);
    return Formatted("\\u%04x", 0xD800 + ((value - kBeyond) >> 10)) +
           Formatted("\\u%04x", 0xDC00 + ((value - kBeyond) & 0x3FF));
}

}  // namespace

std::string Printable(std::string_view text) {
    std::string printable;
    printable.reserve(text.size());
    while (!text.empty()) {
        const Character first = FirstOf(text);
        if (first.valid && (first.value < 0x20 || first.value == 0x7F))
            printable.append({'^', static_cast<char>(first.value ^ 0x40)});
        else if (!first.valid || (first.value >= 0x80 && first.value < 0xA0))
            printable += Formatted("\\x%02x", first.value);
        else
            printable += text.substr(0, first.length);
        text.remove_prefix(first.length);
    }
    return printable;
}

std::string JsonString(std::string_view text) {
    constexpr std::uint32_t kReplacement = 0xFFFD;
    std::string quoted = "\"";
    while (!text.empty()) {
        const Character first = FirstOf(text);
        if (first.value == '"' || first.value == '\\')
            quoted.append({'\\', static_cast<char>(first.value)});
        else if (first.value >= 0x20 && first.value < 0x7F)
            quoted += static_cast<char>(first.value);
        else
            quoted += Escaped(first.valid ? first.value : kReplacement);
        text.remove_prefix(first.length);
    }
    return quoted + '"';
}

}  // namespace tesselctl
