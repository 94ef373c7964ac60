#include "SmallDisk.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "support/Descriptor.h"
#include "support/Files.h"
#include "support/Waiting.h"

namespace fs = std::filesystem;

namespace {

constexpr char kSize[] = "size=64m,mode=0755";

[[noreturn]] void Fail(const std::string& what) {
    throw Failed(what + ": " + std::strerror(errno));
}

void EnterOwnNamespaces() {
    const uid_t user = geteuid();
    const gid_t group = getegid();
    if (user == 0) {
        if (unshare(CLONE_NEWNS) != 0) {
            Fail("no mounts of our own");
        }
    } else {
        if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
            Fail("no user namespace of our own");
        }
        WriteFile("/proc/self/setgroups", "deny");
        WriteFile("/proc/self/uid_map", std::to_string(user) + " " + std::to_string(user) + " 1");
        WriteFile("/proc/self/gid_map", std::to_string(group) + " " + std::to_string(group) + " 1");
    }
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        Fail("the mounts cannot be made private");
    }
}

}  // namespace

SmallDisk::SmallDisk(const fs::path& where) {
    std::string pattern = (where / "tesselcore-soak-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        Fail(pattern);
    }
    folder = pattern;
    EnterOwnNamespaces();
    if (mount("tmpfs", folder.c_str(), "tmpfs", MS_NODEV, kSize) != 0) {
        Fail("mount " + folder.string());
    }
    setenv("TMPDIR", folder.c_str(), 1);
}

SmallDisk::~SmallDisk() {
    unsetenv("TMPDIR");
    umount2(folder.c_str(), MNT_DETACH);
    std::error_code ignored;
    fs::remove(folder, ignored);
}

void SmallDisk::Fill() const {
    const Descriptor filler(open(Filler().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    if (!filler) {
        Fail("the disk cannot be filled");
    }
    // Without a file of zeros in memory first, and to the last page.
    for (off_t step = 16 << 20, at = 0; step >= 4096;) {
        if (posix_fallocate(filler.Get(), at, step) == 0) {
            at += step;
        } else {
            step /= 2;
        }
    }
}

void SmallDisk::Free() const {
    std::error_code none;
    fs::remove(Filler(), none);
}
