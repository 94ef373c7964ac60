#include "CarbonCore/FolderDescriptor.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>

#include <cerrno>

namespace frameworks {

UniqueDescriptor OpenFolder(const std::string& path) {
    constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW;
    open_how how = {};
    how.flags = kFlags;
    how.resolve = RESOLVE_NO_SYMLINKS;
    UniqueDescriptor folder(
        static_cast<int>(syscall(SYS_openat2, AT_FDCWD, path.c_str(), &how, sizeof how)));
    if (!folder.IsOpen() && (errno == ENOSYS || errno == EPERM)) {
        // A kernel, or a cage, that does not know the call: the last component at least is safe.
        folder = UniqueDescriptor(open(path.c_str(), kFlags));
    }
    if (!folder.IsOpen() && errno == ELOOP) {
        errno = ENOENT;
    }
    return folder;
}

Location LocationOf(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    return {std::string(path.substr(0, slash == 0 ? 1 : slash)),
            std::string(path.substr(slash + 1))};
}

}  // namespace frameworks
