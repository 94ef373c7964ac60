#include "core/OpenFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace {

bool IsRegularFile(int descriptor) {
    struct stat status;
    if (fstat(descriptor, &status) != 0) {
        return false;
    }
    errno = EINVAL;
    return S_ISREG(status.st_mode);
}

}  // namespace

int OpenWithoutWaiting(const std::string& path, int flags, mode_t mode) {
    int descriptor = -1;
    do {
        descriptor = ::open(path.c_str(), flags | O_NONBLOCK | O_NOCTTY, mode);
    } while (descriptor == -1 && errno == EINTR);
    if (descriptor != -1) {
        fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    }
    return descriptor;
}

FileOwner OpenFile(const std::string& path, int flags, const char* mode) {
    const int descriptor = OpenWithoutWaiting(path, flags);
    if (descriptor == -1) {
        return nullptr;
    }
    FileOwner file(IsRegularFile(descriptor) ? fdopen(descriptor, mode) : nullptr);
    if (!file) {
        const int error = errno;
        close(descriptor);
        errno = error;
    }
    return file;
}
