#include <CoreFoundation/CFURL.h>
#include <sys/stat.h>

#include <new>

#include "CarbonCore/FileReference.h"
#include "CoreFoundation/URL.h"

using frameworks::Ref;

CFURLRef CFURLCreateFromFSRef(CFAllocatorRef, const FSRef* fsRef) {
    if (fsRef == nullptr) {
        frameworks::Misuse("CFURLCreateFromFSRef", "the reference is null");
    }
    try {
        const std::optional<std::string> path = frameworks::PathOf(*fsRef);
        struct stat status;
        if (!path || lstat(path->c_str(), &status) != 0) return nullptr;
        return __CFURL::OfPath(*path, S_ISDIR(status.st_mode)).Leak();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
