#include <cstdio>

#include "CoreFoundation/String.h"
#include "Support/StandardError.h"

namespace {

void AppendEscaped(std::string& shown, char32_t unit) {
    char escaped[sizeof "\\u0000"];
    std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(unit));
    shown += escaped;
}

// TEXT with everything outside ASCII as one escape per UTF-16 unit.
std::string Escaped(std::string_view text) {
    std::string shown;
    shown.reserve(text.size() + 1);
    for (std::size_t position = 0; position < text.size();) {
        const auto lead = static_cast<UInt8>(text[position++]);
        if (lead < 0x80) {
            shown += static_cast<char>(lead);
            continue;
        }
        char32_t character = lead < 0xE0 ? lead & 0x1Fu : lead < 0xF0 ? lead & 0x0Fu : lead & 0x07u;
        while (position < text.size() && (static_cast<UInt8>(text[position]) & 0xC0) == 0x80) {
            character = character << 6 | (static_cast<UInt8>(text[position++]) & 0x3Fu);
        }
        if (character < 0x10000) {
            AppendEscaped(shown, character);
        } else {
            AppendEscaped(shown, 0xD800 + ((character - 0x10000) >> 10));
            AppendEscaped(shown, 0xDC00 + ((character - 0x10000) & 0x3FF));
        }
    }
    return shown;
}

std::string Shown(CFTypeRef reference) noexcept {
    if (reference == nullptr) {
        return "(null)";
    }
    const frameworks::Object& object = frameworks::AnyObject(reference, "CFShow");
    if (&object.ObjectType() == &__CFString::kType) {
        return Escaped(static_cast<const __CFString&>(object).Text());
    }
    return Escaped(object.Describe());
}

}  // namespace

void CFShow(CFTypeRef obj) {
    std::string shown = Shown(obj);
    if (shown.empty() || shown.back() != '\n') {
        shown += '\n';
    }
    frameworks::WriteToStandardError(shown);
}
