#include "CarbonCore/FolderStream.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <string_view>

namespace frameworks {

FolderStream::FolderStream(UniqueDescriptor folder) {
    if (folder.IsOpen()) {
        stream.reset(fdopendir(folder.Get()));
    }
    if (stream) {
        folder.Leak();
    }
}

const dirent* FolderStream::Next() {
    for (;;) {
        errno = 0;
        const dirent* const entry = readdir(stream.get());
        if (entry == nullptr) {
            error = errno;
            return nullptr;
        }
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") return entry;
    }
}

bool FolderStream::IsFolder(const dirent& entry) const {
    if (entry.d_type != DT_UNKNOWN) return entry.d_type == DT_DIR;
    struct stat status;
    return fstatat(Descriptor(), entry.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISDIR(status.st_mode);
}

UniqueDescriptor FolderStream::OpenEntry(const char* name) const {
    return UniqueDescriptor(
        openat(Descriptor(), name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
}

}  // namespace frameworks
