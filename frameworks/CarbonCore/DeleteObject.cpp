#include <CarbonCore/Files.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <optional>
#include <string>

#include "CarbonCore/FileReference.h"
#include "CarbonCore/FolderDescriptor.h"
#include "CarbonCore/ShortStatus.h"
#include "Support/ErrnoStatus.h"
#include "Support/PerThread.h"
#include "Support/UniqueDescriptor.h"

using frameworks::StatusOfErrno;
using frameworks::UniqueDescriptor;

namespace {

// The folder of the object that this thread has deleted last. It is opened for good when a second
// object in a row is deleted in it, and closed when one lies elsewhere or cannot be deleted: then a
// tree costs one opening a folder, and nothing is held behind the last of it.
class LastFolder {
  public:
    static LastFolder& OfThisThread() { return frameworks::PerThread<LastFolder>(); }

    // Opens FOLDER, unless it is open. Not open, with errno, when that is impossible.
    const UniqueDescriptor& Open(const std::string& folder) {
        const bool isSecond = path == folder;
        if (!isSecond || !descriptor.IsOpen()) {
            descriptor = frameworks::OpenFolder(folder);
            path = folder;
        }
        isKept = isSecond;
        return descriptor;
    }
    void ObjectIsDeleted() {
        if (!isKept) {
            descriptor.Close();
        }
    }
    void Forget() {
        path.clear();
        descriptor.Close();
    }

  private:
    std::string path;
    UniqueDescriptor descriptor;
    bool isKept = false;
};

// What the user cannot look into he cannot empty: it stays full, and waiting for it is of no use.
OSStatus StatusOfFullFolder(const UniqueDescriptor& folder, const char* name) {
    constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW;
    const UniqueDescriptor full(openat(folder.Get(), name, kFlags));
    return StatusOfErrno(!full.IsOpen() && errno == EACCES ? EACCES : ENOTEMPTY);
}

OSStatus DeleteIn(const UniqueDescriptor& folder, const char* name) {
    if (!folder.IsOpen()) return StatusOfErrno(errno);
    if (unlinkat(folder.Get(), name, 0) == 0) return noErr;
    if (errno == EISDIR && unlinkat(folder.Get(), name, AT_REMOVEDIR) == 0) return noErr;
    return errno == ENOTEMPTY ? StatusOfFullFolder(folder, name) : StatusOfErrno(errno);
}

OSStatus Delete(const FSRef& ref) {
    if (!frameworks::IsRef(ref)) return paramErr;
    const std::optional<std::string> path = frameworks::PathOf(ref);
    if (!path) return fnfErr;
    const frameworks::Location location = frameworks::LocationOf(*path);
    // The root is always in use.
    if (location.name.empty()) return fBsyErr;
    LastFolder& last = LastFolder::OfThisThread();
    const OSStatus status = DeleteIn(last.Open(location.folder), location.name.c_str());
    if (status == noErr) {
        last.ObjectIsDeleted();
    } else {
        last.Forget();
    }
    return status;
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
