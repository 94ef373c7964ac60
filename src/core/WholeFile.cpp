#include "core/WholeFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "core/OpenFile.h"

namespace {

constexpr mode_t kDefaultMode = 0666;
constexpr mode_t kPermissions = 0777;
// The default, less what the process grants nobody.
constexpr int kAsForANewFile = -1;

int OpenThisFile(const std::string& path, int flags, mode_t mode = 0) {
    return OpenWithoutWaiting(path, flags | O_NOFOLLOW, mode);
}

}  // namespace

WholeFile::~WholeFile() {
    Discard();
}

int WholeFile::Open(const std::string& path, Readers readers) {
    target = path;
    if (readers == Readers::kOwnerAlone) {
        granted = S_IRUSR | S_IWUSR;
    }
    struct stat old;
    if (lstat(path.c_str(), &old) != 0) {
        return errno == ENOENT ? OpenBeside(kAsForANewFile) : errno;
    }
    if (S_ISDIR(old.st_mode)) {
        return EISDIR;
    }
    if (!S_ISREG(old.st_mode)) {
        return OpenBeside(kAsForANewFile);
    }
    // One that its owner has closed to writing is not replaced either.
    const int mayWrite = OpenThisFile(path, O_WRONLY);
    if (mayWrite == -1) {
        return errno;
    }
    close(mayWrite);
    const bool isOwn = old.st_uid == geteuid();
    const int error =
        OpenBeside(isOwn ? static_cast<int>(old.st_mode & kPermissions) : kAsForANewFile);
    return error == EACCES || error == EPERM ? OpenInPlace() : error;
}

int WholeFile::OpenBeside(int mode) {
    // Another process that publishes the same file has another number.
    beside = target + "." + std::to_string(getpid());
    unlink(beside.c_str());
    descriptor = OpenThisFile(beside, O_WRONLY | O_CREAT | O_EXCL, kDefaultMode & granted);
    if (descriptor == -1) {
        const int error = errno;
        beside.clear();
        return error;
    }
    if (mode != kAsForANewFile && fchmod(descriptor, static_cast<mode_t>(mode) & granted) != 0) {
        const int error = errno;
        Discard();
        return error;
    }
    return 0;
}

int WholeFile::OpenInPlace() {
    descriptor = OpenThisFile(target, O_WRONLY);
    struct stat status;
    const bool isAllRight =
        descriptor != -1 &&
        (granted == kPermissions ||
         (fstat(descriptor, &status) == 0 && fchmod(descriptor, status.st_mode & granted) == 0));
    const int error = errno;
    if (!isAllRight) {
        Discard();
    }
    return isAllRight ? 0 : error;
}

int WholeFile::WriteAndClose(const std::string& text) {
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t written = write(descriptor, text.data() + done, text.size() - done);
        if (written >= 0) {
            done += static_cast<std::size_t>(written);
        } else if (errno != EINTR) {
            return errno;
        }
    }
    const int closed = close(descriptor);
    descriptor = -1;
    return closed == 0 || errno == EINTR ? 0 : errno;
}

int WholeFile::Commit(const std::string& text) {
    if (descriptor == -1) {
        return EBADF;
    }
    const bool isInPlace = beside.empty();
    int error = isInPlace && ftruncate(descriptor, 0) != 0 ? errno : WriteAndClose(text);
    if (error == 0 && !isInPlace) {
        if (std::rename(beside.c_str(), target.c_str()) == 0) {
            beside.clear();
        } else {
            error = errno;
        }
    }
    Discard();
    return error;
}

void WholeFile::Discard() {
    if (descriptor != -1) {
        close(descriptor);
        descriptor = -1;
    }
    if (!beside.empty()) {
        unlink(beside.c_str());
        beside.clear();
    }
}
