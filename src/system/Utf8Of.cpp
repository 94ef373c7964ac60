#include "system/Utf8Of.h"

namespace {

// A UTF-16 unit takes three bytes at the most: those that take four come in pairs.
constexpr CFIndex kBytesPerUnit = 3;

}  // namespace

std::optional<std::string> Utf8Of(CFTypeRef value) {
    if (value == nullptr || CFGetTypeID(value) != CFStringGetTypeID()) {
        return std::nullopt;
    }
    const auto text = static_cast<CFStringRef>(value);
    const CFIndex size = kBytesPerUnit * CFStringGetLength(text) + 1;
    std::string bytes(static_cast<std::size_t>(size), '\0');
    if (!CFStringGetCString(text, bytes.data(), size, kCFStringEncodingUTF8)) {
        return std::nullopt;
    }
    bytes.resize(bytes.find('\0'));
    return bytes;
}
