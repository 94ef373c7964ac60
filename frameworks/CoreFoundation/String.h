// The object behind CFStringRef: an immutable text in UTF-8, with its length in UTF-16 units.
//
// A created string and its text are one block of memory; a constant one points at its literal. Both
// are followed by a NUL byte. Other folders of the layer make and read strings through this header
// instead of the public calls.
//
// An exported constant is defined so:
//     namespace { frameworks::Immortal<__CFString> defaultMode("kCFRunLoopDefaultMode"); }
//     const CFStringRef kCFRunLoopDefaultMode = defaultMode.Get();
//
// Threads: any. Failure: Make gives nothing for malformed UTF-8 or when memory runs out.
#pragma once

#include <CoreFoundation/CFString.h>

#include <cstddef>
#include <string_view>

#include "CoreFoundation/Immortal.h"
#include "CoreFoundation/Object.h"
#include "CoreFoundation/UTF8.h"

struct __CFString final : frameworks::Object {
    static constexpr const frameworks::Type& kType = frameworks::kStringType;

    // The text of a string from Make lies behind the object, in the same block.
    // NOLINTNEXTLINE(cert-dcl54-cpp): Make gets the block, for it alone knows how large it is
    static void operator delete(void* block) { ::operator delete(block); }

    // Around a text that outlives the string, is well-formed and is followed by a NUL byte: a
    // literal.
    constexpr __CFString(frameworks::Lifetime lifetime, std::string_view itsText)
        : __CFString(lifetime, itsText, frameworks::Utf16Length(itsText)) {}

    static frameworks::Ref<__CFString> Make(
        std::string_view text, frameworks::Lifetime lifetime = frameworks::Lifetime::kCounted);

    // The one immortal string of a literal's text.
    static const __CFString* OfLiteral(const char* literal) noexcept;

    std::string_view Text() const { return text; }
    // In UTF-16 units.
    CFIndex Length() const { return length; }

    bool Equals(const frameworks::Object& other) const override;
    CFHashCode Hash() const override;
    std::string Describe() const override;

  private:
    constexpr __CFString(frameworks::Lifetime lifetime, std::string_view itsText, CFIndex itsLength)
        : Object(kType, lifetime), text(itsText), length(itsLength) {}

    const std::string_view text;
    const CFIndex length;
};
