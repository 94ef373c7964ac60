#include <CarbonCore/Files.h>

#include <CarbonCore/MacErrors.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "CarbonCore/FileReference.h"
#include "Support/ErrnoStatus.h"

using frameworks::StatusOfErrno;

namespace {

OSStatus MakeRefOfPath(const char* path, FSRef& ref, Boolean* isDirectory) {
    const std::unique_ptr<char, decltype(&std::free)> canonical(realpath(path, nullptr), std::free);
    struct stat status;
    if (!canonical || (isDirectory != nullptr && stat(canonical.get(), &status) != 0)) {
        return StatusOfErrno(errno);
    }
    ref = frameworks::MakeRef(canonical.get());
    if (isDirectory != nullptr) {
        *isDirectory = S_ISDIR(status.st_mode) ? 1 : 0;
    }
    return noErr;
}

OSStatus MakePathOfRef(const FSRef& ref, UInt8* path, UInt32 size) {
    if (!frameworks::IsRef(ref)) return paramErr;
    const std::optional<std::string> found = frameworks::PathOf(ref);
    struct stat status;
    if (!found) return fnfErr;
    if (lstat(found->c_str(), &status) != 0) return StatusOfErrno(errno);
    if (found->size() >= size) return pathTooLongErr;
    std::memcpy(path, found->c_str(), found->size() + 1);
    return noErr;
}

}  // namespace

OSStatus FSPathMakeRef(const UInt8* path, FSRef* ref, Boolean* isDirectory) {
    if (path == nullptr || ref == nullptr) return paramErr;
    try {
        return MakeRefOfPath(reinterpret_cast<const char*>(path), *ref, isDirectory);
    } catch (const std::bad_alloc&) {
        return memFullErr;
    }
}

OSStatus FSRefMakePath(const FSRef* ref, UInt8* path, UInt32 pathBufferSize) {
    if (ref == nullptr || path == nullptr) return paramErr;
    try {
        return MakePathOfRef(*ref, path, pathBufferSize);
    } catch (const std::bad_alloc&) {
        return memFullErr;
    }
}
