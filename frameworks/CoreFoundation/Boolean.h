// The object behind CFBooleanRef. There are two of them, kCFBooleanTrue and kCFBooleanFalse.
#pragma once

#include <CoreFoundation/CFNumber.h>

#include "CoreFoundation/Object.h"

struct __CFBoolean final : frameworks::Object {
    static constexpr const frameworks::Type& kType = frameworks::kBooleanType;

    constexpr __CFBoolean(frameworks::Lifetime lifetime, bool itsValue)
        : Object(kType, lifetime), value(itsValue) {}

    bool Value() const { return value; }

    std::string Describe() const override;

  private:
    const bool value;
};
