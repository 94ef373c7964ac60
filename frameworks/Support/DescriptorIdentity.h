// Tells whether a descriptor number still stands for the file that it stood for.
//
// A number is given out again as soon as it has been closed; a socket's inode is not. So whoever
// keeps a number that somebody else may close compares before using it.
//
// Threads: any. Failure: a number that is not open has no identity.
#pragma once

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
    if (fstat(descriptor, &status) != 0) {
        return std::nullopt;
    }
    return DescriptorIdentity{status.st_dev, status.st_ino};
}

}  // namespace frameworks
