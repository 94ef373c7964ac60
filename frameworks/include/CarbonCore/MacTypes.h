// The elementary types of the Mac's C interfaces.
//
// Sizes, signedness and names are the Mac's, with 32 bits as with 64, so that format strings and
// overloads mean the same on both platforms: SInt64 is long long (not int64_t, which is long here),
// UInt32 is long where that has 32 bits, Size is long. What is here is what the service and the
// other headers of this layer name.
#pragma once

using UInt8 = unsigned char;
using SInt8 = signed char;
using UInt16 = unsigned short;
using SInt16 = signed short;
#if defined(__LP64__)
using UInt32 = unsigned int;
using SInt32 = signed int;
#else
using UInt32 = unsigned long;
using SInt32 = signed long;
#endif
using UInt64 = unsigned long long;
using SInt64 = signed long long;
using Float32 = float;
using Float64 = double;

// One byte, 0 or 1; not bool, whose conversion would hide a call that answers something else.
using Boolean = unsigned char;

using UniChar = UInt16;
using UniCharCount = unsigned long;
using StringPtr = unsigned char*;

// Blocks of the Memory Manager (MacMemory.h).
using Ptr = char*;
using Handle = Ptr*;
using Size = long;

// Results: 0 is success, what is below zero is an error.
using OSErr = SInt16;
using OSStatus = SInt32;

using OptionBits = UInt32;
using ItemCount = unsigned long;
using ByteCount = unsigned long;

// Four characters as one number, the first one in the highest byte: 'appl' and the like.
using FourCharCode = UInt32;
using OSType = FourCharCode;
using ResType = FourCharCode;

// Names a character set.
using TextEncoding = UInt32;

enum { noErr = 0 };
enum { kNilOptions = 0 };

#pragma pack(push, 2)
// Structures of these headers are packed as for the Mac's first processors: to two bytes.

// Names a process. On Linux the low half is the process id and the high half is 0.
struct ProcessSerialNumber {
    UInt32 highLongOfPSN;
    UInt32 lowLongOfPSN;
};
#pragma pack(pop)

using ProcessSerialNumberPtr = ProcessSerialNumber*;
