#include "apps/Paths.h"

#include <sys/stat.h>

#include <cerrno>

namespace {

constexpr UInt32 kPathSize = 1024;

}  // namespace

bool MayExist(const std::string& path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0 || errno != ENOENT;
}

PathReference ReferenceTo(const std::string& path) {
    FSRef ref = {};
    Boolean isFolder = false;
    if (FSPathMakeRef(reinterpret_cast<const UInt8*>(path.c_str()), &ref, &isFolder) != noErr) {
        return {FSRef(), false, false};
    }
    return {ref, true, isFolder != 0};
}

std::string PathOfReference(const FSRef& reference) {
    UInt8 path[kPathSize];
    if (FSRefMakePath(&reference, path, sizeof path) != noErr) {
        return std::string();
    }
    return reinterpret_cast<const char*>(path);
}
