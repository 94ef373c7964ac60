// Tells whether a descriptor number still stands for the file that it stood for.
//
// A number is given out again as soon as it has been closed; a socket's inode is not. So whoever
// keeps a number that somebody else may close compares before using it.
//
// Threads: any. Failure: a number that is not open has no identity.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <optional>

namespace frameworks {

struct DescriptorIdentity {
    dev_t device;
    ino_t inode;

    bool operator==(const DescriptorIdentity& other) const {
        return device == other.device && inode == other.inode;
    }
};

inline std::optional<DescriptorIdentity> IdentityOf(int descriptor) {
    struct stat status;
    // Not fstat, which ThreadSanitizer takes for a use of the descriptor and so for a race with the
    // thread that opened the number anew. Whose the number is by now is just what is asked.
    if (descriptor < 0 || fstatat(descriptor, "", &status, AT_EMPTY_PATH) != 0) {
        return std::nullopt;
    }
    return DescriptorIdentity{status.st_dev, status.st_ino};
}

}  // namespace frameworks
