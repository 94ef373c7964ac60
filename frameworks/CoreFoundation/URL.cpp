#include "CoreFoundation/URL.h"

#include <strings.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>

#include "CoreFoundation/String.h"

using frameworks::Checked;
using frameworks::Misuse;
using frameworks::Ref;

namespace {

constexpr std::string_view kFileScheme = "file";
constexpr std::string_view kLocalHost = "localhost";

// Not those of <cctype>, which depend on the locale.
bool IsLetter(char byte) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
}

bool IsDigit(char byte) {
    return byte >= '0' && byte <= '9';
}

int HexValue(char byte) {
    if (IsDigit(byte)) {
        return byte - '0';
    }
    if (byte >= 'a' && byte <= 'f') {
        return byte - 'a' + 10;
    }
    return byte >= 'A' && byte <= 'F' ? byte - 'A' + 10 : -1;
}

bool IsOneOf(std::string_view set, char byte) {
    return set.find(byte) != std::string_view::npos;
}

// What stands for itself in a path.
bool IsPlainInPath(char byte) {
    return IsLetter(byte) || IsDigit(byte) || IsOneOf("-_.!~*'()/:@&=+$,", byte);
}

bool IsEscape(std::string_view text, std::size_t position) {
    return text.size() - position > 2 && HexValue(text[position + 1]) >= 0 &&
           HexValue(text[position + 2]) >= 0;
}

bool IsLegal(std::string_view text) {
    bool hasFragment = false;
    for (std::size_t position = 0; position < text.size(); ++position) {
        const char byte = text[position];
        if (byte == '%') {
            if (!IsEscape(text, position)) {
                return false;
            }
        } else if (byte == '#') {
            if (hasFragment) {
                return false;
            }
            hasFragment = true;
        } else if (!IsPlainInPath(byte) && !IsOneOf(";?[]", byte)) {
            return false;
        }
    }
    return !text.empty();
}

bool EqualIgnoringCase(std::string_view one, std::string_view other) {
    return one.size() == other.size() && strncasecmp(one.data(), other.data(), one.size()) == 0;
}

// The scheme without its colon; empty when there is none.
std::string_view SchemeOf(std::string_view text) {
    std::size_t size = 0;
    while (size < text.size() &&
           (IsLetter(text[size]) ||
            (size > 0 && (IsDigit(text[size]) || IsOneOf("+-.", text[size]))))) {
        ++size;
    }
    return size < text.size() && text[size] == ':' ? text.substr(0, size) : std::string_view();
}

std::string CurrentFolder() {
    const std::unique_ptr<char, decltype(&std::free)> folder(getcwd(nullptr, 0), &std::free);
    return folder == nullptr ? std::string() : folder.get();
}

template <typename Make>
CFURLRef NullWithoutMemory(Make make) {
    try {
        return make().Leak();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

}  // namespace

Ref<__CFURL> __CFURL::OfText(std::string_view text) {
    return IsLegal(text) ? Ref<__CFURL>::Adopt(new __CFURL(std::string(text))) : Ref<__CFURL>();
}

Ref<__CFURL> __CFURL::OfPath(std::string_view path, bool isFolder) {
    static constexpr char kDigits[] = "0123456789ABCDEF";

    if (path.empty() || path.find('\0') != std::string_view::npos) {
        return {};
    }
    std::string absolute(path);
    if (path.front() != '/') {
        const std::string folder = CurrentFolder();
        if (folder.empty()) {
            return {};
        }
        absolute = folder + (folder.back() == '/' ? "" : "/") + absolute;
    }
    if (isFolder && absolute.back() != '/') {
        absolute += '/';
    }
    std::string text(kFileScheme);
    text += "://";
    text.reserve(text.size() + absolute.size());
    for (const char byte : absolute) {
        if (IsPlainInPath(byte)) {
            text += byte;
        } else {
            text += '%';
            text += kDigits[static_cast<UInt8>(byte) >> 4];
            text += kDigits[static_cast<UInt8>(byte) & 0xF];
        }
    }
    return Ref<__CFURL>::Adopt(new __CFURL(std::move(text)));
}

std::optional<std::string> __CFURL::Path() const {
    std::string_view rest = text;
    if (!EqualIgnoringCase(SchemeOf(rest), kFileScheme)) {
        return std::nullopt;
    }
    rest.remove_prefix(kFileScheme.size() + 1);
    rest = rest.substr(0, rest.find_first_of("?#"));
    if (rest.substr(0, 2) == "//") {
        rest.remove_prefix(2);
        const std::string_view host = rest.substr(0, rest.find('/'));
        if (!host.empty() && !EqualIgnoringCase(host, kLocalHost)) {
            return std::nullopt;
        }
        rest.remove_prefix(host.size());
    }
    if (rest.empty() || rest.front() != '/') {
        return std::nullopt;
    }
    if (rest.size() > 1 && rest.back() == '/') {
        rest.remove_suffix(1);
    }
    std::string path;
    path.reserve(rest.size());
    for (std::size_t position = 0; position < rest.size(); ++position) {
        char byte = rest[position];
        if (byte == '%') {
            byte =
                static_cast<char>(HexValue(rest[position + 1]) << 4 | HexValue(rest[position + 2]));
            position += 2;
        }
        if (byte == '\0') {
            return std::nullopt;
        }
        path += byte;
    }
    return path;
}

bool __CFURL::Equals(const Object& other) const {
    return text == static_cast<const __CFURL&>(other).text;
}

CFHashCode __CFURL::Hash() const {
    return std::hash<std::string>()(text);
}

std::string __CFURL::Describe() const {
    return DescribeHead() + "{string = " + text + "}";
}

CFTypeID CFURLGetTypeID() {
    return __CFURL::kType.id;
}

CFURLRef CFURLCreateWithString(CFAllocatorRef, CFStringRef URLString, CFURLRef baseURL) {
    const std::string_view text = Checked<__CFString>(URLString, "CFURLCreateWithString").Text();
    if (baseURL != nullptr) {
        Misuse("CFURLCreateWithString", "a base is given, but there are no relative addresses");
    }
    return NullWithoutMemory([&] { return __CFURL::OfText(text); });
}

CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef, const UInt8* buffer,
                                                 CFIndex bufLen, Boolean isDirectory) {
    if (bufLen < 0 || buffer == nullptr) {
        Misuse("CFURLCreateFromFileSystemRepresentation", "there is no path");
    }
    const std::string_view path(reinterpret_cast<const char*>(buffer),
                                static_cast<std::size_t>(bufLen));
    return NullWithoutMemory([&] { return __CFURL::OfPath(path, isDirectory != 0); });
}

Boolean CFURLGetFileSystemRepresentation(CFURLRef url, Boolean, UInt8* buffer, CFIndex maxBufLen) {
    const __CFURL& address = Checked<__CFURL>(url, "CFURLGetFileSystemRepresentation");
    if (buffer == nullptr) {
        Misuse("CFURLGetFileSystemRepresentation", "the buffer is null");
    }
    try {
        const std::optional<std::string> path = address.Path();
        if (!path || maxBufLen < 0 || static_cast<std::size_t>(maxBufLen) <= path->size()) {
            return false;
        }
        std::memcpy(buffer, path->c_str(), path->size() + 1);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}
