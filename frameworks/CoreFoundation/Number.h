// The object behind CFNumberRef: a whole number of 64 bits, with a sign or without, or a double.
//
// Threads: any. Failure: none.
#pragma once

#include <CoreFoundation/CFNumber.h>

#include <limits>

#include "CoreFoundation/Object.h"

struct __CFNumber final : frameworks::Object {
    static constexpr const frameworks::Type& kType = frameworks::kNumberType;

    explicit __CFNumber(SInt64 value) : Object(kType), real(false), large(false), whole(value) {}
    explicit __CFNumber(UInt64 value)
        : Object(kType),
          real(false),
          large(value > static_cast<UInt64>(std::numeric_limits<SInt64>::max())),
          whole(static_cast<SInt64>(value)) {}
    explicit __CFNumber(double value) : Object(kType), real(true), large(false), fraction(value) {}

    bool IsReal() const { return real; }
    // Whether it is a whole number above what has room beside a sign.
    bool IsLarge() const { return large; }
    // The 64 bits of a whole number: with a sign, but for a large one.
    SInt64 Whole() const { return whole; }
    double Fraction() const { return fraction; }

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
    const bool large;
    union {
        const SInt64 whole;
        const double fraction;
    };
};
