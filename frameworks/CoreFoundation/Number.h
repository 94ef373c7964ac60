// The object behind CFNumberRef: a whole number of 64 bits, or a double.
//
// Threads: any. Failure: none.
#pragma once

#include <CoreFoundation/CFNumber.h>

#include "CoreFoundation/Object.h"

struct __CFNumber final : frameworks::Object {
    static constexpr const frameworks::Type& kType = frameworks::kNumberType;

    explicit __CFNumber(SInt64 value) : Object(kType), real(false), whole(value) {}
    explicit __CFNumber(double value) : Object(kType), real(true), fraction(value) {}

    // Stores the value as a T. False when it had to be changed to fit.
    template <typename T>
    bool StoreWhole(void* destination) const;
    template <typename T>
    bool StoreReal(void* destination) const;

    bool Equals(const frameworks::Object& other) const override;
    CFHashCode Hash() const override;
    std::string Describe() const override;

  private:
    const bool real;
    union {
        const SInt64 whole;
        const double fraction;
    };
};
