// What a result code is called.
//
// Backed by a table of the codes that this layer gives (frameworks/CarbonCore/Debugging.cpp).
// What is here: the name of the constant. Different from the Mac: codes that no call of this layer
// gives have no name (MacErrors_test: Name_OfACodeThatNothingGives_IsEmpty), and those of
// Authorization Services have theirs.
// Ownership: names are constant and live for ever. Threads: any. Failure: an empty text.
#pragma once

#include <CarbonCore/MacTypes.h>

extern "C" {

// "fnfErr" for -43. Codes that stand for an error number of the system are called as that is, with
// "kPOSIXError" before it.
const char* GetMacOSStatusErrorString(OSStatus err);

}  // extern "C"
