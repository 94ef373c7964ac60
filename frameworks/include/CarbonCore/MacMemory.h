// Blocks of memory of the Memory Manager.
//
// Backed by calloc and free; what stands behind a handle is in frameworks/CarbonCore/Handle.h.
// What is here: blocks that do not move, and handles: pointers to the pointer to a block whose size
// a call may change. Different from the Mac: a block moves only in a call that changes its size.
// Ownership: the caller gives a block back with DisposePtr, a handle with DisposeHandle.
// Threads: any; a handle is for one thread at a time.
#pragma once

#include <CarbonCore/MacTypes.h>

extern "C" {

// All bytes are 0. Null when the size is negative or memory runs out; a block of no bytes is a
// block.
Ptr NewPtrClear(Size byteCount);
// Null is allowed.
void DisposePtr(Ptr p);

// What its bytes are is not said. Null as above.
Handle NewHandle(Size byteCount);
// Null is allowed.
void DisposeHandle(Handle h);

}  // extern "C"
