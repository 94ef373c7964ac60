// The File Manager: references to files and folders that exist, the entries of a folder, deletion.
//
// Backed by frameworks/CarbonCore/FileReference: 80 bytes that hold a file's name and lead to its
// folder in a table of the process; by readdir and unlinkat.
// What is here: making a reference of a path, and a path of a reference; iterators over what lies
// directly in a folder, with the number of items that each folder in it holds; deleting a file, a
// link or an empty folder.
// Different from the Mac: a reference goes by the path, so a file that is moved is not followed
// (Files_test: MakePath_OfAFileThatWasMoved_IsNotFound); a folder on the way that has since been
// replaced by a link is not followed by what lists and deletes
// (FileManager_test: Delete_WhenAFolderOnTheWayBecameALink_DoesNotFollowIt). A path need not be
// UTF-8: any name that Linux allows comes back byte for byte.
//
// Ownership: a reference is plain memory, copied at will and never given back. It means nothing to
// another process. An iterator is given back with FSCloseIterator. Threads: any; an iterator is for
// one thread at a time. Failure: memory that is not a reference, such as one full of zeros, is
// refused with paramErr by every call; fnfErr when the file is not there (any more).
#pragma once

#include <CarbonCore/MacTypes.h>
#include <CarbonCore/UTCUtils.h>

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

// What a catalog says of a file. Only valence is ever filled in.

#pragma pack(push, 2)
struct FSCatalogInfo {
    UInt16 nodeFlags;
    FSVolumeRefNum volume;
    UInt32 parentDirID;
    UInt32 nodeID;
    UInt8 sharingFlags;
    UInt8 userPrivileges;
    UInt8 reserved1;
    UInt8 reserved2;
    UTCDateTime createDate;
    UTCDateTime contentModDate;
    UTCDateTime attributeModDate;
    UTCDateTime accessDate;
    UTCDateTime backupDate;
    UInt32 permissions[4];
    UInt8 finderInfo[16];
    UInt8 extFinderInfo[16];
    UInt64 dataLogicalSize;
    UInt64 dataPhysicalSize;
    UInt64 rsrcLogicalSize;
    UInt64 rsrcPhysicalSize;
    UInt32 valence;
    TextEncoding textEncodingHint;
};
#pragma pack(pop)

using FSCatalogInfoBitmap = UInt32;
enum {
    kFSCatInfoNone = 0,
    // How many items a folder holds; 0 for everything else, links to folders among it. A folder
    // that cannot be looked into counts as holding one.
    kFSCatInfoValence = 0x00002000
};

using FSIterator = struct OpaqueFSIterator*;
using FSIteratorFlags = OptionBits;
enum { kFSIterateFlat = 0, kFSIterateSubtree = 1 };

struct FSSpec;
using FSSpecPtr = FSSpec*;
struct HFSUniStr255;

// errFSBadIteratorFlags for any flag but those two, errFSNotAFolder for a file.
OSErr FSOpenIterator(const FSRef* container, FSIteratorFlags iteratorFlags, FSIterator* iterator);
// The next entries, in no order. noErr when the arrays are full, so that more may follow;
// errFSNoMoreItems when these were the last, which may be none. Only kFSIterateFlat is supported,
// as on the Mac, and only kFSCatInfoValence may be asked for, or nothing. catalogInfos, which is
// left alone where nothing is asked for, and refs may be null; the other pointers must be. paramErr
// when they are not, and errFSIteratorNotSupported, errFSBadInfoBitmap, errFSMissingCatInfo,
// errFSBadItemCount for none at the most, and errFSIteratorNotFound for what is no open iterator.
OSErr FSGetCatalogInfoBulk(FSIterator iterator, ItemCount maximumObjects, ItemCount* actualObjects,
                           Boolean* containerChanged, FSCatalogInfoBitmap whichInfo,
                           FSCatalogInfo* catalogInfos, FSRef* refs, FSSpecPtr specs,
                           HFSUniStr255* names);
// errFSIteratorNotFound for what is no open iterator.
OSErr FSCloseIterator(FSIterator iterator);

// A file, an empty folder, or a link, never what that points to. fBsyErr for a folder that holds
// something and for what is in use (such as a mount point); afpAccessDenied for one that holds
// something and cannot be looked into
// (FileManager_test: Delete_OfAFullFolderThatCannotBeLookedInto_IsDenied). The folder in which a thread deletes
// several in a row stays open until one lies elsewhere or cannot be deleted
// (FileManager_test: Delete_OfSeveralInAFolder_KeepsItOpenUntilOneFailsOrLiesElsewhere).
OSErr FSDeleteObject(const FSRef* ref);

}  // extern "C"
