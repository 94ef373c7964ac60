// Immutable texts.
//
// Backed by our own frameworks/CoreFoundation/String: UTF-8 in memory, lengths in UTF-16 units, as
// on the Mac. What is here: making a string of a C string and back, literals, comparison, and
// CFShow. Different from the Mac: UTF-8 is the only encoding; with any other one a string cannot be
// made (null) or got (false) (CFString_test: Create_WithAnotherEncoding_GivesNull). The only
// comparison is the literal one; asking for another stops the program (CFString_test:
// Compare_WithOptions_Stops). Ownership: Create hands over one reference. CFSTR lends a string that
// lives as long as the program. Threads: any. Failure: null or false, as said per call; a null or
// foreign reference stops the program.
#pragma once

#include <CoreFoundation/CFBase.h>

extern "C" {

using CFStringEncoding = UInt32;
enum CFStringBuiltInEncodings : CFStringEncoding { kCFStringEncodingUTF8 = 0x08000100 };

// None of the Mac's options is here: 0 compares literally.
using CFStringCompareFlags = CFOptionFlags;

CFTypeID CFStringGetTypeID(void);

// Null when the bytes are not well-formed UTF-8: no overlong forms, no surrogates, nothing above
// U+10FFFF.
CFStringRef CFStringCreateWithCString(CFAllocatorRef alloc, const char* cStr,
                                      CFStringEncoding encoding);
// The size must do for the text and its closing NUL byte; when it does not, the answer is false and
// the buffer is left as it was.
Boolean CFStringGetCString(CFStringRef theString, char* buffer, CFIndex bufferSize,
                           CFStringEncoding encoding);
// In UTF-16 units: a character above U+FFFF counts as 2.
CFIndex CFStringGetLength(CFStringRef theString);
// By UTF-16 units.
CFComparisonResult CFStringCompare(CFStringRef theString1, CFStringRef theString2,
                                   CFStringCompareFlags compareOptions);

// Writes to standard error, in one piece: a string as its text, anything else as a description,
// null as "(null)". Characters outside ASCII show as \u and four hexadecimal digits. A line feed
// follows where the text has none.
void CFShow(CFTypeRef obj);

// The string of a literal, the same one for the same text. CFSTR asks once per place where it
// stands.
CFStringRef __CFStringMakeConstantString(const char* cStr);

}  // extern "C"

#define CFSTR(cStr)                                                                              \
    ([]() -> CFStringRef {                                                                       \
        static const CFStringRef constantOfThisPlace = __CFStringMakeConstantString("" cStr ""); \
        return constantOfThisPlace;                                                              \
    }())
