// Owners for what the system hands out: whoever holds one frees it, and nobody else does.
//
// Move-only, for any thread. A Core Foundation object that a function named Create or Copy returned
// is adopted; one that is only borrowed (from a function named Get) is retained.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <cstdio>
#include <memory>
#include <utility>

// Owns one reference; Reference is CFStringRef or another of the opaque types. May be empty.
template <typename Reference>
class CFOwner {
  public:
    CFOwner() = default;
    static CFOwner Adopt(Reference reference) { return CFOwner(reference); }
    static CFOwner Retain(Reference reference) {
        if (reference != nullptr) {
            CFRetain(reference);
        }
        return CFOwner(reference);
    }
    CFOwner(CFOwner&& other) noexcept : reference(std::exchange(other.reference, nullptr)) {}
    CFOwner& operator=(CFOwner&& other) noexcept {
        std::swap(reference, other.reference);
        return *this;
    }
    ~CFOwner() {
        if (reference != nullptr) {
            CFRelease(reference);
        }
    }

    Reference Get() const { return reference; }
    explicit operator bool() const { return reference != nullptr; }

  private:
    explicit CFOwner(Reference itsReference) : reference(itsReference) {}

    Reference reference = nullptr;
};

struct CloseFile {
    // Whoever has written to the file has flushed it and looked at the outcome.
    void operator()(std::FILE* file) const { static_cast<void>(std::fclose(file)); }
};
using FileOwner = std::unique_ptr<std::FILE, CloseFile>;
