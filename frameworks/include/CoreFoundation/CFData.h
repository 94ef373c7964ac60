// Immutable runs of bytes.
//
// Backed by frameworks/CoreFoundation/Data: object and bytes in one block of memory.
// What is here: making one of bytes, and reading it.
// Ownership: Create hands over one reference; the byte pointer is lent for as long as the object
// lives. Threads: any. Failure: null when memory runs out; a negative length, or no bytes for a
// length, stops the program.
#pragma once

#include <CoreFoundation/CFBase.h>

extern "C" {

using CFDataRef = const struct __CFData*;

CFTypeID CFDataGetTypeID(void);

// Copies the bytes.
CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length);
CFIndex CFDataGetLength(CFDataRef theData);
// Never null, not even for no bytes at all.
const UInt8* CFDataGetBytePtr(CFDataRef theData);

}  // extern "C"
