// What kinds of files are called.
//
// Threads: any. Ownership: the constants live for ever.
#pragma once

#include <CoreFoundation/CFBase.h>

extern "C" {

// "public.png"
CF_EXPORT const CFStringRef kUTTypePNG;

}  // extern "C"
