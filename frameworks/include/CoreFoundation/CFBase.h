// The common ground of Core Foundation: elementary types, references, ownership, equality.
//
// Backed by frameworks/CoreFoundation/Object.h: every reference is the address of one
// reference-counted C++ object. What is here: the calls that take a reference of any type, and the
// names that all other headers use. Different from the Mac: the only allocator is the default one
// (a null reference); any other allocator argument is ignored. A null reference, which crashes on
// the Mac, stops the program with a message that names the call. Ownership: Create and Copy hand
// over one reference, which the caller gives back with CFRelease; Get lends. Threads: retaining and
// releasing are safe from any thread; objects that can change are for one thread at a time.
// Failure: the calls here cannot fail.
#pragma once

#include <CarbonCore/MacTypes.h>

#define CF_EXPORT extern

extern "C" {

using CFTypeID = unsigned long;
using CFOptionFlags = unsigned long;
using CFHashCode = unsigned long;
using CFIndex = signed long;

// A reference to an object of any type.
using CFTypeRef = const void*;
// A string, data, number, boolean, array or dictionary.
using CFPropertyListRef = CFTypeRef;
using CFStringRef = const struct __CFString*;
using CFAllocatorRef = const struct __CFAllocator*;

enum CFComparisonResult : CFIndex {
    kCFCompareLessThan = -1,
    kCFCompareEqualTo = 0,
    kCFCompareGreaterThan = 1
};

static const CFIndex kCFNotFound = -1;

// Null, as on the Mac.
CF_EXPORT const CFAllocatorRef kCFAllocatorDefault;

CFTypeID CFGetTypeID(CFTypeRef cf);
// Returns its argument.
CFTypeRef CFRetain(CFTypeRef cf);
// Destroys the object when the last reference goes.
void CFRelease(CFTypeRef cf);
// Objects of different types are never equal.
Boolean CFEqual(CFTypeRef cf1, CFTypeRef cf2);
// Equal objects have equal codes. Codes are good for one run of the program only.
CFHashCode CFHash(CFTypeRef cf);

}  // extern "C"
