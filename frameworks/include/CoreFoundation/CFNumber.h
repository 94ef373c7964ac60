// Numbers and truth values as objects.
//
// Backed by frameworks/CoreFoundation/Number and Boolean: whole numbers in 64 bits (those of a
// property list also above what has room beside a sign), all others as a double. What is here: making a number of any of the Mac's types and getting it back as any of
// them; true and false. Ownership: Create hands over one reference; kCFBooleanTrue and
// kCFBooleanFalse live as long as the program. Threads: any. Failure: see CFNumberGetValue; a type
// that is none of the list stops the program.
#pragma once

#include <CoreFoundation/CFBase.h>

extern "C" {

using CFBooleanRef = const struct __CFBoolean*;

CF_EXPORT const CFBooleanRef kCFBooleanTrue;
CF_EXPORT const CFBooleanRef kCFBooleanFalse;

CFTypeID CFBooleanGetTypeID(void);
Boolean CFBooleanGetValue(CFBooleanRef boolean);

enum CFNumberType : CFIndex {
    kCFNumberSInt8Type = 1,
    kCFNumberSInt16Type = 2,
    kCFNumberSInt32Type = 3,
    kCFNumberSInt64Type = 4,
    kCFNumberFloat32Type = 5,
    kCFNumberFloat64Type = 6,
    kCFNumberCharType = 7,
    kCFNumberShortType = 8,
    kCFNumberIntType = 9,
    kCFNumberLongType = 10,
    kCFNumberLongLongType = 11,
    kCFNumberFloatType = 12,
    kCFNumberDoubleType = 13,
    kCFNumberCFIndexType = 14,
    kCFNumberNSIntegerType = 15,
    kCFNumberCGFloatType = 16,
    kCFNumberMaxType = 16
};

using CFNumberRef = const struct __CFNumber*;

CFTypeID CFNumberGetTypeID(void);

// Numbers are equal when they stand for the same value, whatever type they were made with.
CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType theType, const void* valuePtr);
// False when the value does not fit the asked-for type exactly; the nearest value that fits is
// stored all the same: the type's limit for a value beyond it, the whole part of a fraction, 0 for
// what is not a number.
Boolean CFNumberGetValue(CFNumberRef number, CFNumberType theType, void* valuePtr);

}  // extern "C"
