#include "LaunchServices/FileStamp.h"

namespace frameworks {
namespace {

constexpr std::chrono::seconds kCoarsestTick{2};

}  // namespace

FileStamp FileStamp::Of(const char* path) {
    FileStamp stamp;
    struct stat status;
    if (stat(path, &status) != 0) return stamp;
    stamp.exists = true;
    stamp.mode = status.st_mode;
    stamp.device = status.st_dev;
    stamp.inode = status.st_ino;
    stamp.size = status.st_size;
    // Not the time of modification, which whoever unpacks an archive may set to anything.
    stamp.changed = std::chrono::seconds(status.st_ctim.tv_sec) +
                    std::chrono::nanoseconds(status.st_ctim.tv_nsec);
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    stamp.isSettled = now - stamp.changed > kCoarsestTick;
    return stamp;
}

bool FileStamp::StillHolds(const FileStamp& now) const {
    return exists && now.exists && isSettled && device == now.device && inode == now.inode &&
           size == now.size && changed == now.changed;
}

}  // namespace frameworks
