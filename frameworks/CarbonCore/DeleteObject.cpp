#include <CarbonCore/Files.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <optional>

#include "CarbonCore/FileReference.h"
#include "CarbonCore/FolderDescriptor.h"
#include "CarbonCore/ShortStatus.h"
#include "Support/ErrnoStatus.h"

using frameworks::StatusOfErrno;

namespace {

OSStatus Delete(const FSRef& ref) {
    if (!frameworks::IsRef(ref)) return paramErr;
    const std::optional<std::string> path = frameworks::PathOf(ref);
    if (!path) return fnfErr;
    const frameworks::Location location = frameworks::LocationOf(*path);
    // The root is always in use.
    if (location.name.empty()) return fBsyErr;
    const frameworks::UniqueDescriptor folder = frameworks::OpenFolder(location.folder);
    if (!folder.IsOpen()) return StatusOfErrno(errno);
    const char* const name = location.name.c_str();
    if (unlinkat(folder.Get(), name, 0) == 0) return noErr;
    if (errno == EISDIR && unlinkat(folder.Get(), name, AT_REMOVEDIR) == 0) return noErr;
    return StatusOfErrno(errno);
}

}  // namespace

OSErr FSDeleteObject(const FSRef* ref) {
    if (ref == nullptr) return paramErr;
    try {
        return frameworks::ShortStatus(Delete(*ref));
    } catch (const std::bad_alloc&) {
        return memFullErr;
    }
}
