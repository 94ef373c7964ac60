// Streams that read and write a file.
//
// Backed by frameworks/CoreFoundation/Stream: a descriptor to read from, and for writing a file
// beside the one that is meant (frameworks/Support/ReplacedFile).
// What is here: a stream of a file, opening and closing it. Who reads and writes is
// CFPropertyList.h.
// Different from the Mac: a file that is written is never half-written. Opening empties nothing;
// the file is replaced when a whole list has been written, and stays as it was otherwise
// (CFStream_test: WriteStream_ClosedWithoutAList_LeavesTheFile). A folder that takes no new file
// cannot be written in, whoever may write the file itself
// (CFStream_test: WriteStream_InAFolderThatTakesNoNewFile_CannotBeOpened). Only regular files are
// read and written (CFStream_test: ReadStream_OfAPipe_CannotBeOpened). A file that could not be read
// is not opened for writing, and what was read and is no property list stays beside the file that
// replaces it, with ".unreadable" behind its name, until somebody takes it away
// (CFPropertyList_test: Write_WhereTheListCouldNotBeRead_IsZeroAndLeavesTheFile,
// Write_WhereTheFileWasNoList_KeepsItBeside).
// The links on the way to a file are followed, the last one too; the file's mode, owner and group
// stay.
//
// Ownership: Create hands over one reference; the last one to go closes the stream. Threads: one at
// a time. Failure: null for an address that has no path, false from opening.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFURL.h>

extern "C" {

using CFReadStreamRef = struct __CFReadStream*;
using CFWriteStreamRef = struct __CFWriteStream*;

// Whether the file is there is asked by opening.
CFReadStreamRef CFReadStreamCreateWithFile(CFAllocatorRef alloc, CFURLRef fileURL);
CFWriteStreamRef CFWriteStreamCreateWithFile(CFAllocatorRef alloc, CFURLRef fileURL);

// False when it cannot be read or written, and for a stream that has been opened before.
Boolean CFReadStreamOpen(CFReadStreamRef stream);
Boolean CFWriteStreamOpen(CFWriteStreamRef stream);

// A stream that is not open may be closed. It cannot be opened again.
void CFReadStreamClose(CFReadStreamRef stream);
void CFWriteStreamClose(CFWriteStreamRef stream);

}  // extern "C"
