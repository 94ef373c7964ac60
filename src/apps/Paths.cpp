#include "apps/Paths.h"

#include <sys/stat.h>

#include <cerrno>

namespace {

constexpr UInt32 kPathSize = 1024;
constexpr PathReference kNothing = {FSRef(), false, false};

bool NamesAnEntry(const std::string& path) {
    const std::string name = path.substr(path.rfind('/') + 1);
    return !name.empty() && name != "." && name != "..";
}

// Without following links.
bool IsSameFolder(const std::string& left, const std::string& right) {
    struct stat one;
    struct stat other;
    return lstat(left.c_str(), &one) == 0 && lstat(right.c_str(), &other) == 0 &&
           S_ISDIR(one.st_mode) && one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

}  // namespace

bool MayExist(const std::string& path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0 || errno != ENOENT;
}

PathReference ReferenceTo(const std::string& path) {
    FSRef ref = {};
    Boolean isFolder = false;
    if (FSPathMakeRef(reinterpret_cast<const UInt8*>(path.c_str()), &ref, &isFolder) != noErr) {
        return kNothing;
    }
    return {ref, true, isFolder != 0};
}

PathReference ReferenceToFolderAt(const std::string& path) {
    if (!NamesAnEntry(path)) {
        return kNothing;
    }
    // The reference first: a link that stood there then leads to another folder than the one that
    // stands there afterwards.
    const PathReference found = ReferenceTo(path);
    return found.exists && IsSameFolder(path, PathOfReference(found.ref)) ? found : kNothing;
}

std::string PathOfReference(const FSRef& reference) {
    UInt8 path[kPathSize];
    if (FSRefMakePath(&reference, path, sizeof path) != noErr) {
        return std::string();
    }
    return reinterpret_cast<const char*>(path);
}
