#include "unit/support/Kernel.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>

#include "unit/support/ForkedTest.h"

void GiveUpRootsRights() {
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3] = {};
    ASSERT_EQ(0, syscall(SYS_capset, &header, none));
}

void LetFail(long number, int error) {
    sock_filter rules[] = {
        {BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)},
        {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, static_cast<__u32>(number)},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ERRNO | static_cast<__u32>(error)},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW},
    };
    const sock_fprog program = {sizeof rules / sizeof rules[0], rules};
    ASSERT_EQ(0, prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0));
    // On every thread: the C library ends a process whose threads are not of one user.
    ASSERT_EQ(0,
              syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_TSYNC, &program));
}

namespace {

// What is mounted from now on is for this process and its children alone.
bool HasMountsOfItsOwn() {
    return unshare(CLONE_NEWNS) == 0 &&
           mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

}  // namespace

bool EnterANetworkOfItsOwn() {
    if (unshare(CLONE_NEWNET) != 0) {
        return false;
    }
    ifreq loopback = {};
    std::strcpy(loopback.ifr_name, "lo");
    loopback.ifr_flags = IFF_UP;
    const int control = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool isUp = ioctl(control, SIOCSIFFLAGS, &loopback) == 0;
    close(control);
    return isUp;
}

bool LeaveTheProcessTable() {
    return unshare(CLONE_NEWPID) == 0;
}

bool EnterTheNewProcessTable() {
    return getpid() == 1 && HasMountsOfItsOwn() && mount("proc", "/proc", "proc", 0, nullptr) == 0;
}

bool PutAtTheConsole(uid_t user) {
    const std::string standIn = Home() + "/console";
    WriteFile(standIn, "");
    return chown(standIn.c_str(), user, static_cast<gid_t>(-1)) == 0 && HasMountsOfItsOwn() &&
           mount(standIn.c_str(), "/dev/console", nullptr, MS_BIND, nullptr) == 0;
}

std::vector<int> OpenDescriptors() {
    std::vector<int> open;
    DIR* const folder = opendir("/proc/self/fd");
    EXPECT_NE(nullptr, folder);
    while (const dirent* const entry = folder == nullptr ? nullptr : readdir(folder)) {
        const int descriptor = std::atoi(entry->d_name);
        if (descriptor > STDERR_FILENO && descriptor != dirfd(folder)) {
            open.push_back(descriptor);
        }
    }
    if (folder != nullptr) {
        closedir(folder);
    }
    return open;
}
