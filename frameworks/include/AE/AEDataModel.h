// Apple events: what they are made of.
//
// Backed by frameworks/AE/Descriptor: a descriptor's contents are one block of memory.
// What is here: descriptors with any contents, events without parameters, and the names of types of
// data that travel with events.
//
// Ownership: what a Create call fills in is given back with AEDisposeDesc; an event keeps a copy of
// its target. Threads: any, a descriptor for one at a time. Failure: a descriptor that could not be
// made is empty: typeNull.
#pragma once

#include <CarbonCore/MacTypes.h>

extern "C" {

using DescType = ResType;

enum : DescType {
    typeAppleEvent = 0x61657674,           // 'aevt'
    typeApplicationBundleID = 0x62756E64,  // 'bund'
    typeNull = 0x6E756C6C,                 // 'null'
    typeProcessSerialNumber = 0x70736E20,  // 'psn '
    typeWildCard = 0x2A2A2A2A              // '****': whatever it is
};

using AEDataStorage = struct OpaqueAEDataStorageType**;

#pragma pack(push, 2)
struct AEDesc {
    DescType descriptorType;
    AEDataStorage dataHandle;
};
#pragma pack(pop)

using AEAddressDesc = AEDesc;
using AppleEvent = AEDesc;

using AEEventClass = FourCharCode;
using AEEventID = FourCharCode;
using AEReturnID = SInt16;
using AETransactionID = SInt32;
using AESendMode = SInt32;

enum { kAutoGenerateReturnID = -1, kAnyTransactionID = 0 };

// The sender wants no reply.
enum { kAENoReply = 0x00000001 };

enum { kAEDefaultTimeout = -1 };

// Copies the data. paramErr for a null result, a size below zero, or a size of something at a null
// address.
OSErr AECreateDesc(DescType typeCode, const void* dataPtr, Size dataSize, AEDesc* result);
// What was disposed of before, or never filled in but is typeNull, may be disposed of again.
// paramErr for a null pointer.
OSErr AEDisposeDesc(AEDesc* theAEDesc);
// The numbers of reply and transaction have no meaning without replies. paramErr for a null result
// or target; errAENotAEDesc for an empty target.
OSErr AECreateAppleEvent(AEEventClass theAEEventClass, AEEventID theAEEventID,
                         const AEAddressDesc* target, AEReturnID returnID,
                         AETransactionID transactionID, AppleEvent* result);

}  // extern "C"
