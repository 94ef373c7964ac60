// What the tests of the frameworks layer share: an owner for what a Create call hands over, and
// objects that tell when they are destroyed.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <string>
#include <utility>

#include "CoreFoundation/Object.h"

// Gives back, at its end, the one reference that it was made with.
template <typename T>
class Owned {
  public:
    Owned(T itsReference) : reference(itsReference) {}
    Owned(Owned&& other) noexcept : reference(std::exchange(other.reference, nullptr)) {}
    Owned& operator=(Owned&&) = delete;
    ~Owned() {
        if (reference != nullptr) {
            CFRelease(reference);
        }
    }

    operator T() const { return reference; }

  private:
    T reference;
};

inline Owned<CFStringRef> MakeString(const char* text) {
    return CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingUTF8);
}

inline Owned<CFNumberRef> MakeNumber(int value) {
    return CFNumberCreate(kCFAllocatorDefault, kCFNumberIntType, &value);
}

// The text of a string, through the public call.
inline std::string TextOf(CFStringRef string) {
    std::string text(4 * static_cast<std::size_t>(CFStringGetLength(string)) + 1, '\0');
    if (!CFStringGetCString(string, text.data(), static_cast<CFIndex>(text.size()),
                            kCFStringEncodingUTF8)) {
        return "<no text>";
    }
    // cppcheck-suppress stlcstrReturn ; the text ends at its NUL byte
    return text.c_str();
}

// Sets its flag when it is destroyed. All probes are of one type and equal when their marks are.
class Probe final : public frameworks::Object {
  public:
    static constexpr frameworks::Type kType{1000, "Probe"};

    explicit Probe(bool& itsFlag, int itsMark = 0) : Object(kType), flag(itsFlag), mark(itsMark) {}
    ~Probe() override { flag = true; }

    bool Equals(const Object& other) const override {
        return mark == static_cast<const Probe&>(other).mark;
    }
    CFHashCode Hash() const override { return static_cast<CFHashCode>(mark); }

  private:
    bool& flag;
    int mark;
};
