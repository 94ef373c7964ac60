#include "CoreFoundation/Number.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <limits>
#include <new>

using frameworks::Checked;
using frameworks::Misuse;

namespace {

// The limits of a whole number of 64 bits as doubles: the lower one is reached, the upper one is
// not.
constexpr double kLowestWhole = -0x1p63;
constexpr double kAboveWhole = 0x1p63;
constexpr double kAboveLarge = 0x1p64;

bool IsInWholeRange(double value) {
    return value >= kLowestWhole && value < kAboveWhole;
}

bool SameReal(double one, double other) {
    if (std::isnan(one) || std::isnan(other)) {
        return std::isnan(one) && std::isnan(other);
    }
    return one == other && std::signbit(one) == std::signbit(other);
}

bool SameValue(SInt64 whole, double real) {
    return IsInWholeRange(real) && SameReal(std::trunc(real), real) &&
           static_cast<SInt64>(real) == whole && !(whole == 0 && std::signbit(real));
}

bool SameLargeValue(UInt64 large, double real) {
    return real >= kAboveWhole && real < kAboveLarge && static_cast<UInt64>(real) == large;
}

template <typename T>
T Load(const void* source) {
    T value;
    std::memcpy(&value, source, sizeof value);
    return value;
}

template <typename T>
__CFNumber* MakeWhole(const void* source) {
    return new (std::nothrow) __CFNumber(static_cast<SInt64>(Load<T>(source)));
}

template <typename T>
__CFNumber* MakeReal(const void* source) {
    return new (std::nothrow) __CFNumber(static_cast<double>(Load<T>(source)));
}

[[noreturn]] void UnknownType(const char* call, CFNumberType type) {
    Misuse(call, "there is no number type " + std::to_string(static_cast<CFIndex>(type)));
}

}  // namespace

template <typename T>
bool __CFNumber::StoreWhole(void* destination) const {
    // NOLINTNEXTLINE(bugprone-signed-char-misuse,cert-str34-c): a small number, no character
    constexpr SInt64 kLowest = std::numeric_limits<T>::min();
    constexpr SInt64 kHighest = std::numeric_limits<T>::max();
    SInt64 nearest = 0;
    bool exact = true;
    if (large) {
        nearest = std::numeric_limits<SInt64>::max();
        exact = false;
    } else if (!real) {
        nearest = whole;
    } else if (std::isnan(fraction)) {
        exact = false;
    } else if (!IsInWholeRange(fraction)) {
        nearest = fraction < 0 ? kLowest : kHighest;
        exact = false;
    } else {
        nearest = static_cast<SInt64>(fraction);
        exact = std::trunc(fraction) == fraction;
    }
    if (nearest < kLowest || nearest > kHighest) {
        nearest = nearest < 0 ? kLowest : kHighest;
        exact = false;
    }
    const T value = static_cast<T>(nearest);
    std::memcpy(destination, &value, sizeof value);
    return exact;
}

template <typename T>
bool __CFNumber::StoreReal(void* destination) const {
    T value = 0;
    bool exact = true;
    if (large) {
        value = static_cast<T>(static_cast<UInt64>(whole));
        exact = SameLargeValue(static_cast<UInt64>(whole), static_cast<double>(value));
    } else if (!real) {
        value = static_cast<T>(whole);
        exact = SameValue(whole, static_cast<double>(value));
    } else if (std::isfinite(fraction) && std::abs(fraction) > std::numeric_limits<T>::max()) {
        value = fraction < 0 ? std::numeric_limits<T>::lowest() : std::numeric_limits<T>::max();
        exact = false;
    } else {
        value = static_cast<T>(fraction);
        exact = SameReal(static_cast<double>(value), fraction);
    }
    std::memcpy(destination, &value, sizeof value);
    return exact;
}

bool __CFNumber::Equals(const Object& other) const {
    const auto& number = static_cast<const __CFNumber&>(other);
    if (real && number.real) {
        return SameReal(fraction, number.fraction);
    }
    if (!real && !number.real) {
        return whole == number.whole && large == number.large;
    }
    const __CFNumber& wholeOne = real ? number : *this;
    const double realOne = real ? fraction : number.fraction;
    return wholeOne.large ? SameLargeValue(static_cast<UInt64>(wholeOne.whole), realOne)
                          : SameValue(wholeOne.whole, realOne);
}

CFHashCode __CFNumber::Hash() const {
    // A double that equals a whole number must have its code.
    SInt64 value = 0;
    if (large) {
        return std::hash<double>()(static_cast<double>(static_cast<UInt64>(whole)));
    }
    if (!real || StoreWhole<SInt64>(&value)) {
        return std::hash<SInt64>()(real ? value : whole);
    }
    return std::isnan(fraction) ? 0 : std::hash<double>()(fraction);
}

std::string __CFNumber::Describe() const {
    if (!real) {
        return DescribeHead() + "{value = " +
               (large ? std::to_string(static_cast<UInt64>(whole)) : std::to_string(whole)) + "}";
    }
    char digits[32];
    std::snprintf(digits, sizeof digits, "%.17g", fraction);
    return DescribeHead() + "{value = " + digits + "}";
}

CFTypeID CFNumberGetTypeID() {
    return __CFNumber::kType.id;
}

CFNumberRef CFNumberCreate(CFAllocatorRef, CFNumberType theType, const void* valuePtr) {
    if (valuePtr == nullptr) {
        Misuse("CFNumberCreate", "the value pointer is null");
    }
    switch (theType) {
        case kCFNumberSInt8Type:
        case kCFNumberCharType:
            return MakeWhole<SInt8>(valuePtr);
        case kCFNumberSInt16Type:
        case kCFNumberShortType:
            return MakeWhole<SInt16>(valuePtr);
        case kCFNumberSInt32Type:
        case kCFNumberIntType:
            return MakeWhole<SInt32>(valuePtr);
        case kCFNumberSInt64Type:
        case kCFNumberLongType:
        case kCFNumberLongLongType:
        case kCFNumberCFIndexType:
        case kCFNumberNSIntegerType:
            return MakeWhole<SInt64>(valuePtr);
        case kCFNumberFloat32Type:
        case kCFNumberFloatType:
            return MakeReal<Float32>(valuePtr);
        case kCFNumberFloat64Type:
        case kCFNumberDoubleType:
        case kCFNumberCGFloatType:
            return MakeReal<Float64>(valuePtr);
    }
    UnknownType("CFNumberCreate", theType);
}

Boolean CFNumberGetValue(CFNumberRef number, CFNumberType theType, void* valuePtr) {
    const __CFNumber& value = Checked<__CFNumber>(number, "CFNumberGetValue");
    if (valuePtr == nullptr) {
        Misuse("CFNumberGetValue", "the value pointer is null");
    }
    switch (theType) {
        case kCFNumberSInt8Type:
        case kCFNumberCharType:
            return value.StoreWhole<SInt8>(valuePtr);
        case kCFNumberSInt16Type:
        case kCFNumberShortType:
            return value.StoreWhole<SInt16>(valuePtr);
        case kCFNumberSInt32Type:
        case kCFNumberIntType:
            return value.StoreWhole<SInt32>(valuePtr);
        case kCFNumberSInt64Type:
        case kCFNumberLongType:
        case kCFNumberLongLongType:
        case kCFNumberCFIndexType:
        case kCFNumberNSIntegerType:
            return value.StoreWhole<SInt64>(valuePtr);
        case kCFNumberFloat32Type:
        case kCFNumberFloatType:
            return value.StoreReal<Float32>(valuePtr);
        case kCFNumberFloat64Type:
        case kCFNumberDoubleType:
        case kCFNumberCGFloatType:
            return value.StoreReal<Float64>(valuePtr);
    }
    UnknownType("CFNumberGetValue", theType);
}
