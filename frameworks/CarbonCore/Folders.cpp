#include <CarbonCore/Folders.h>

#include <CarbonCore/MacErrors.h>

#include <new>
#include <optional>
#include <string>

#include "CarbonCore/HomeFolder.h"
#include "CarbonCore/ShortStatus.h"
#include "CarbonCore/TemporaryFolder.h"
#include "Support/ErrnoStatus.h"

using frameworks::StatusOfErrno;

namespace {

OSStatus RefOf(const std::string& folder, FSRef& ref) {
    return FSPathMakeRef(reinterpret_cast<const UInt8*>(folder.c_str()), &ref, nullptr);
}

OSStatus FindFolder(OSType type, bool makesIt, FSRef& ref) {
    switch (type) {
        case kCurrentUserFolderType: {
            const std::optional<std::string> home = frameworks::HomeFolder();
            return home ? RefOf(*home, ref) : static_cast<OSStatus>(fnfErr);
        }
        case kTemporaryFolderType:
        case kChewableItemsFolderType: {
            std::string folder;
            const int error = frameworks::FindTemporaryFolder(makesIt, folder);
            return error == 0 ? RefOf(folder, ref) : StatusOfErrno(error);
        }
        default:
            return invalidFolderTypeErr;
    }
}

}  // namespace

OSErr FSFindFolder(FSVolumeRefNum vRefNum, OSType folderType, Boolean createFolder,
                   FSRef* foundRef) {
    if (foundRef == nullptr) return paramErr;
    if (vRefNum != kUserDomain && vRefNum != kOnAppropriateDisk) return nsvErr;
    try {
        const OSStatus status = FindFolder(folderType, createFolder != 0, *foundRef);
        return frameworks::ShortStatus(status);
    } catch (const std::bad_alloc&) {
        return memFullErr;
    }
}
