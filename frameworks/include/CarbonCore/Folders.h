// Where the system keeps things.
//
// Backed by frameworks/CarbonCore/HomeFolder and frameworks/CarbonCore/TemporaryFolder.
// What is here, whatever the domain: the user's home, and a folder for temporary items, which is
// the same for both types. "The user" is whom the process acts for: while that is the user who
// started it, HOME and TMPDIR count, if they name a folder, which for HOME must be the user's own;
// otherwise the password database does.
// Finding a home makes "Library/Application Support" and "Library/Preferences" in it where they are
// missing. The folder for temporary items belongs to the user alone.
//
// Ownership: nothing is handed over. Threads: any. Failure: paramErr for a null pointer, nsvErr for
// a volume that is none of the constants below, invalidFolderTypeErr for any other type, fnfErr
// when there is no such folder; what the system says when it cannot be made.
#pragma once

#include <CarbonCore/Files.h>
#include <CarbonCore/MacTypes.h>

extern "C" {

enum { kOnAppropriateDisk = -32767, kUserDomain = -32763 };

enum { kCreateFolder = 1, kDontCreateFolder = 0 };

enum : OSType {
    kCurrentUserFolderType = 0x63757372,   // 'cusr'
    kTemporaryFolderType = 0x74656D70,     // 'temp'
    kChewableItemsFolderType = 0x666C6E74  // 'flnt'
};

OSErr FSFindFolder(FSVolumeRefNum vRefNum, OSType folderType, Boolean createFolder,
                   FSRef* foundRef);

}  // extern "C"
