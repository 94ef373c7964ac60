// References to files and folders that exist.
//
// Backed by frameworks/CarbonCore/FileReference: 80 bytes that hold a file's name and lead to its
// folder in a table of the process.
// What is here: making a reference of a path, and a path of a reference.
// Different from the Mac: a reference goes by the path, so a file that is moved is not followed
// (Files_test: MakePath_OfAFileThatWasMoved_IsNotFound). A path need not be UTF-8: any name that
// Linux allows comes back byte for byte.
//
// Ownership: a reference is plain memory, copied at will and never given back. It means nothing to
// another process. Threads: any. Failure: memory that is not a reference, such as one full of
// zeros, is refused with paramErr by every call; fnfErr when the file is not there (any more).
#pragma once

#include <CarbonCore/MacTypes.h>

extern "C" {

using FSVolumeRefNum = SInt16;

struct FSRef {
    UInt8 hidden[80];
};
using FSRefPtr = FSRef*;

// Links are followed, the last one too. isDirectory may be null.
OSStatus FSPathMakeRef(const UInt8* path, FSRef* ref, Boolean* isDirectory);
// Without a closing "/", but for the root's. pathTooLongErr when the buffer is too small for the
// path and a NUL byte; it is then left as it was.
OSStatus FSRefMakePath(const FSRef* ref, UInt8* path, UInt32 pathBufferSize);

}  // extern "C"
