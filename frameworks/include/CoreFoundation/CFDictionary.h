// Collections of values by key, usually of references by strings.
//
// Backed by frameworks/CoreFoundation/Dictionary: a std::unordered_map and the callbacks.
// What is here: filling a dictionary and looking up in it.
// Different from the Mac: a null key or value under the kCFType callbacks and a change to an
// immutable dictionary stop the program with a message (CFDictionary_test: ..._Stops). Ownership:
// Create hands over one reference. Under the kCFType callbacks the dictionary owns a reference to
// each key and value; under null callbacks it holds plain pointers. Values are lent until they
// leave the dictionary. Threads: one at a time while the dictionary changes. Failure: null from
// Create when memory runs out.
#pragma once

#include <CoreFoundation/CFBase.h>

extern "C" {

using CFDictionaryRetainCallBack = const void* (*)(CFAllocatorRef allocator, const void* value);
using CFDictionaryReleaseCallBack = void (*)(CFAllocatorRef allocator, const void* value);
using CFDictionaryCopyDescriptionCallBack = CFStringRef (*)(const void* value);
using CFDictionaryEqualCallBack = Boolean (*)(const void* value1, const void* value2);
using CFDictionaryHashCallBack = CFHashCode (*)(const void* value);
// Any of them may be null: then keys are not retained, not released, shown, compared and hashed by
// address.
struct CFDictionaryKeyCallBacks {
    CFIndex version;
    CFDictionaryRetainCallBack retain;
    CFDictionaryReleaseCallBack release;
    CFDictionaryCopyDescriptionCallBack copyDescription;
    CFDictionaryEqualCallBack equal;
    CFDictionaryHashCallBack hash;
};
struct CFDictionaryValueCallBacks {
    CFIndex version;
    CFDictionaryRetainCallBack retain;
    CFDictionaryReleaseCallBack release;
    CFDictionaryCopyDescriptionCallBack copyDescription;
    CFDictionaryEqualCallBack equal;
};

// For keys and values that are references.
CF_EXPORT const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
CF_EXPORT const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;

using CFDictionaryRef = const struct __CFDictionary*;
using CFMutableDictionaryRef = struct __CFDictionary*;

CFTypeID CFDictionaryGetTypeID(void);

// The capacity is a hint, 0 is none. The callbacks are copied.
CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                                 const CFDictionaryKeyCallBacks* keyCallBacks,
                                                 const CFDictionaryValueCallBacks* valueCallBacks);
CFIndex CFDictionaryGetCount(CFDictionaryRef theDict);
// Null when the key is not there.
const void* CFDictionaryGetValue(CFDictionaryRef theDict, const void* key);
// Adds the value, or puts it in the place of the one that is there; that one is released, its key
// stays.
void CFDictionarySetValue(CFMutableDictionaryRef theDict, const void* key, const void* value);

}  // extern "C"
