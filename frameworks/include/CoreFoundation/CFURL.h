// Addresses, above all of files.
//
// Backed by frameworks/CoreFoundation/URL: the address as its text.
// What is here: an address of a text, an address of a path or a reference, and the path of an
// address.
// Different from the Mac: there are no relative addresses; a base stops the program
// (CFURL_test: CreateWithString_WithABase_Stops). An address of another machine or of another
// scheme than "file" has no path (CFURL_test: GetPath_OfAnotherHost_IsRefused,
// GetPath_OfAnotherScheme_IsRefused). A path need not be UTF-8: any file name that Linux allows
// comes back byte for byte. Ownership: Create hands over one reference. Threads: any. Failure: null
// or false, as said per call.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFString.h>

extern "C" {

using CFURLRef = const struct __CFURL*;
struct FSRef;

CFTypeID CFURLGetTypeID(void);

// Nothing is escaped on the way: null when the text is empty or holds what an address cannot hold,
// such as a blank, a character outside ASCII, a "%" without two hexadecimal digits, or a second
// "#".
CFURLRef CFURLCreateWithString(CFAllocatorRef allocator, CFStringRef URLString, CFURLRef baseURL);
// What an address cannot hold is escaped. A path that is not absolute is taken from the current
// folder, as it is now. Null for an empty path and for one with a NUL byte.
CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef allocator, const UInt8* buffer,
                                                 CFIndex bufLen, Boolean isDirectory);
// The address of what a reference stands for. Null when the reference is none, or when its file is
// not there (any more).
CFURLRef CFURLCreateFromFSRef(CFAllocatorRef allocator, const FSRef* fsRef);
// The path with its escapes undone, without a closing "/". False when the address has none or the
// buffer is too small for it and a NUL byte; the buffer is then left as it was.
Boolean CFURLGetFileSystemRepresentation(CFURLRef url, Boolean resolveAgainstBase, UInt8* buffer,
                                         CFIndex maxBufLen);

}  // extern "C"
