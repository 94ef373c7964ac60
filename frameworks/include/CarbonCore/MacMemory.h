// Blocks of memory of the Memory Manager.
//
// Backed by calloc and free.
// What is here: blocks that do not move. Handles come with the calls that need them.
// Ownership: the caller gives a block back with DisposePtr.
// Threads: any.
#pragma once

#include <CarbonCore/MacTypes.h>

extern "C" {

// All bytes are 0. Null when the size is negative or memory runs out; a block of no bytes is a
// block.
Ptr NewPtrClear(Size byteCount);
// Null is allowed.
void DisposePtr(Ptr p);

}  // extern "C"
