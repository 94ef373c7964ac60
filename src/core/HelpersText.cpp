#include <Carbon/Carbon.h>

#include <sstream>

#include "core/ASCII.h"
#include "core/ConvertUTF.h"
#include "core/Helpers.h"

namespace {

template <typename Text>
Text ToDecimal(int value) {
    std::basic_ostringstream<typename Text::value_type> stream;
    stream << value;
    return stream.str();
}

// wcscmp's rule: a NUL in both ends the comparison.
template <typename Unit, typename Text>
bool BeginsWith(const Unit* prefix, std::size_t length, const Text& text) {
    using TextUnit = typename Text::value_type;
    if (length > text.size()) {
        return false;
    }
    for (std::size_t i = 0; i < length; ++i) {
        if (static_cast<TextUnit>(prefix[i]) != text[i]) {
            return false;
        }
        if (text[i] == TextUnit()) {
            return true;
        }
    }
    return true;
}

}  // namespace

std::wstring Helpers::wstringFromUtf8(const std::string& source) {
    std::wstring result(source.size() + 1, L'\0');
    std::size_t count = 0;
    if (!ConvertUTF8toUTF32(source, &result[0], count)) {
        return L"Utf8 conversion failed";
    }
    return result;
}

std::string Helpers::wstringToUtf8(const std::wstring& source) {
    if (source.empty()) {
        return std::string(1, '\0');
    }
    std::string result;
    return ConvertUTF32toUTF8(source, result) ? result : "Error";
}

std::wstring Helpers::stringToWString(const std::string& source) {
    // Not the C library's widening: in glibc's "C" locale that loses every byte above 0x7F.
    const auto* const bytes = reinterpret_cast<const unsigned char*>(source.data());
    std::wstring result(source.size(), L'\0');
    for (std::size_t at = 0; at < result.size(); ++at) {
        at += CopyASCII(bytes + at, result.size() - at, &result[at]);
        if (at < result.size()) {
            result[at] = static_cast<wchar_t>(bytes[at]);
        }
    }
    return result;
}

std::string Helpers::wstringToString(const std::wstring& source) {
    std::string result(source.size(), '?');
    for (std::size_t at = 0; at < result.size(); ++at) {
        at += CopyASCII(source.data() + at, result.size() - at, &result[at]);
    }
    return result;
}

std::string Helpers::utf8ToString(std::string_view source) {
    return IsASCII(source) ? std::string(source) : wstringToString(UTF32FromUTF8(source));
}

CFStringRef Helpers::wstringToCFString(const std::wstring& source) {
    return CFStringCreateWithCString(kCFAllocatorDefault, wstringToUtf8(source).c_str(),
                                     kCFStringEncodingUTF8);
}

char* Helpers::copy_CFStringRefToCString(CFStringRef source) {
    if (source == nullptr) {
        return nullptr;
    }
    const CFIndex size = 2 * CFStringGetLength(source) + 1;
    char* const copy = NewPtrClear(static_cast<Size>(size));
    if (copy == nullptr) {
        return nullptr;
    }
    if (!CFStringGetCString(source, copy, size, kCFStringEncodingUTF8)) {
        DisposePtr(copy);
        return nullptr;
    }
    return copy;
}

std::string Helpers::intToString(int value) {
    return ToDecimal<std::string>(value);
}

std::wstring Helpers::intToWString(int value) {
    return ToDecimal<std::wstring>(value);
}

bool Helpers::isNullOrEmpty(const std::wstring& text) {
    const std::size_t first = text.find_first_not_of(L' ');
    return first == std::wstring::npos || text[first] == L'\0';
}

bool Helpers::str_prefix(const std::wstring& prefix, const std::wstring& text) {
    return BeginsWith(prefix.data(), prefix.size(), text);
}

bool Helpers::str_prefix(const char* prefix, const std::wstring& text) {
    return BeginsWith(reinterpret_cast<const unsigned char*>(prefix),
                      std::char_traits<char>::length(prefix), text);
}

bool Helpers::str_prefix(const char* prefix, std::string_view text) {
    return BeginsWith(prefix, std::char_traits<char>::length(prefix), text);
}

std::string Helpers::replace(const std::string& text, const std::string& what,
                             const std::string& with) {
    if (what.empty()) {
        return text;
    }
    std::string result;
    std::size_t from = 0;
    for (std::size_t found = text.find(what); found != std::string::npos;
         found = text.find(what, from)) {
        result.append(text, from, found - from).append(with);
        from = found + what.size();
    }
    return result.append(text, from, std::string::npos);
}

std::string Helpers::fixPercentageSign(const std::string& text) {
    return replace(text, "%", "%%");
}
