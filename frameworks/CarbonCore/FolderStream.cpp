#include "CarbonCore/FolderStream.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <utility>

namespace frameworks {
namespace {

// Some thirty entries, and two thousand.
constexpr std::size_t kFirstSize = 1024;
constexpr std::size_t kLargestSize = 65536;

}  // namespace

FolderStream::FolderStream(UniqueDescriptor itsFolder) : folder(std::move(itsFolder)) {}

bool FolderStream::ReadMore() {
    if (size < kLargestSize) {
        size = std::max(kFirstSize, 2 * size);
        entries = std::make_unique<char[]>(size);
    }
    const ssize_t length = getdents64(folder.Get(), entries.get(), size);
    error = length < 0 ? errno : 0;
    next = 0;
    filled = static_cast<std::size_t>(std::max(length, ssize_t{0}));
    return filled > 0;
}

const dirent64* FolderStream::Next() {
    while (next < filled || ReadMore()) {
        const auto* const entry = reinterpret_cast<const dirent64*>(entries.get() + next);
        next += entry->d_reclen;
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") return entry;
    }
    return nullptr;
}

bool FolderStream::IsFolder(const dirent64& entry) const {
    if (entry.d_type != DT_UNKNOWN) return entry.d_type == DT_DIR;
    struct stat status;
    return fstatat(folder.Get(), entry.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISDIR(status.st_mode);
}

UniqueDescriptor FolderStream::OpenEntry(const char* name) const {
    return UniqueDescriptor(
        openat(folder.Get(), name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
}

}  // namespace frameworks
