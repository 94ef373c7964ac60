// Ordered collections of pointers, usually of references.
//
// Backed by frameworks/CoreFoundation/Array: a std::vector and the callbacks.
// What is here: growing and shrinking an array, copying one to change it, reading by index.
// Different from the Mac: an index outside the array, a null value under kCFTypeArrayCallBacks and
// a change to an immutable array stop the program with a message (CFArray_test: ..._Stops).
// Ownership: Create hands over one reference. Under kCFTypeArrayCallBacks the array owns a
// reference to each value; under null callbacks it holds plain pointers. Values are lent until they
// leave the array. Threads: one at a time while the array changes. Failure: null from Create when
// memory runs out.
#pragma once

#include <CoreFoundation/CFBase.h>

extern "C" {

using CFArrayRetainCallBack = const void* (*)(CFAllocatorRef allocator, const void* value);
using CFArrayReleaseCallBack = void (*)(CFAllocatorRef allocator, const void* value);
using CFArrayCopyDescriptionCallBack = CFStringRef (*)(const void* value);
using CFArrayEqualCallBack = Boolean (*)(const void* value1, const void* value2);
// Any of them may be null: then values are not retained, not released, shown by address, compared
// by address.
struct CFArrayCallBacks {
    CFIndex version;
    CFArrayRetainCallBack retain;
    CFArrayReleaseCallBack release;
    CFArrayCopyDescriptionCallBack copyDescription;
    CFArrayEqualCallBack equal;
};

// For values that are references.
CF_EXPORT const CFArrayCallBacks kCFTypeArrayCallBacks;

using CFArrayRef = const struct __CFArray*;
using CFMutableArrayRef = struct __CFArray*;

CFTypeID CFArrayGetTypeID(void);

// The capacity is a hint, 0 is none. The callbacks are copied.
CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                       const CFArrayCallBacks* callBacks);
// The same values under the same callbacks; the values themselves are shared, not copied.
CFMutableArrayRef CFArrayCreateMutableCopy(CFAllocatorRef allocator, CFIndex capacity,
                                           CFArrayRef theArray);
CFIndex CFArrayGetCount(CFArrayRef theArray);
const void* CFArrayGetValueAtIndex(CFArrayRef theArray, CFIndex idx);
void CFArrayAppendValue(CFMutableArrayRef theArray, const void* value);
void CFArrayRemoveValueAtIndex(CFMutableArrayRef theArray, CFIndex idx);

}  // extern "C"
