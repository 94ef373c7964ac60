#include "CoreFoundation/String.h"

#include <cstring>
#include <functional>
#include <mutex>
#include <new>
#include <unordered_map>

using frameworks::Checked;
using frameworks::Lifetime;
using frameworks::Misuse;
using frameworks::Ref;

Ref<__CFString> __CFString::Make(std::string_view text, Lifetime lifetime) {
    const CFIndex length = frameworks::Utf16Length(text);
    if (length == kCFNotFound) {
        return {};
    }
    void* block = ::operator new(sizeof(__CFString) + text.size() + 1, std::nothrow);
    if (block == nullptr) {
        return {};
    }
    char* copy = static_cast<char*>(block) + sizeof(__CFString);
    text.copy(copy, text.size());
    copy[text.size()] = '\0';
    return Ref<__CFString>::Adopt(
        ::new (block) __CFString(lifetime, std::string_view(copy, text.size()), length));
}

const __CFString* __CFString::OfLiteral(const char* literal) noexcept {
    // Never destroyed: literals are used until the very end of the program.
    static std::mutex& mutex = *new std::mutex;
    static auto& constants = *new std::unordered_map<std::string_view, const __CFString*>;

    const std::lock_guard<std::mutex> lock(mutex);
    const auto known = constants.find(literal);
    if (known != constants.end()) {
        return known->second;
    }
    const __CFString* made = __CFString::Make(literal, Lifetime::kImmortal).Leak();
    if (made == nullptr) {
        Misuse("CFSTR", "the literal is not well-formed UTF-8");
    }
    constants.emplace(made->Text(), made);
    return made;
}

bool __CFString::Equals(const Object& other) const {
    return text == static_cast<const __CFString&>(other).text;
}

CFHashCode __CFString::Hash() const {
    return std::hash<std::string_view>()(text);
}

std::string __CFString::Describe() const {
    return DescribeHead() + "{contents = \"" + std::string(text) + "\"}";
}

CFTypeID CFStringGetTypeID() {
    return __CFString::kType.id;
}

CFStringRef CFStringCreateWithCString(CFAllocatorRef, const char* cStr, CFStringEncoding encoding) {
    if (cStr == nullptr) {
        Misuse("CFStringCreateWithCString", "the C string is null");
    }
    if (encoding != kCFStringEncodingUTF8) {
        return nullptr;
    }
    return __CFString::Make(cStr).Leak();
}

Boolean CFStringGetCString(CFStringRef theString, char* buffer, CFIndex bufferSize,
                           CFStringEncoding encoding) {
    const std::string_view text = Checked<__CFString>(theString, "CFStringGetCString").Text();
    if (encoding != kCFStringEncodingUTF8 || bufferSize <= 0 ||
        static_cast<std::size_t>(bufferSize) <= text.size()) {
        return false;
    }
    if (buffer == nullptr) {
        Misuse("CFStringGetCString", "the buffer is null");
    }
    std::memcpy(buffer, text.data(), text.size() + 1);
    return true;
}

CFIndex CFStringGetLength(CFStringRef theString) {
    return Checked<__CFString>(theString, "CFStringGetLength").Length();
}

CFComparisonResult CFStringCompare(CFStringRef theString1, CFStringRef theString2,
                                   CFStringCompareFlags compareOptions) {
    const __CFString& one = Checked<__CFString>(theString1, "CFStringCompare");
    const __CFString& other = Checked<__CFString>(theString2, "CFStringCompare");
    if (compareOptions != 0) {
        Misuse("CFStringCompare", "no option but 0, the literal comparison, is here");
    }
    return frameworks::CompareAsUtf16(one.Text(), other.Text());
}

CFStringRef __CFStringMakeConstantString(const char* cStr) {
    return __CFString::OfLiteral(cStr);
}
