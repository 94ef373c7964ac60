// Tells whether a file or folder has changed since it was read.
//
// The time of its last change is kept by a clock that ticks some hundred times a second, and on
// some disks every other second. So what changed shortly before it was read may have changed once
// more without its stamp showing it; such a stamp is not settled, and is good for nothing.
//
// Threads: any. Failure: what is not there has a stamp like no other.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <chrono>

namespace frameworks {

class FileStamp {
  public:
    // Of nothing.
    FileStamp() = default;
    static FileStamp Of(const char* path);

    bool Exists() const { return exists; }
    bool IsSettled() const { return isSettled; }
    bool IsFolder() const { return S_ISDIR(mode); }
    // Whether what was read when this stamp was taken is what there is when NOW is taken.
    bool StillHolds(const FileStamp& now) const;

  private:
    bool exists = false;
    bool isSettled = false;
    mode_t mode = 0;
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    std::chrono::nanoseconds changed{0};
};

}  // namespace frameworks
