// The one owner of a file descriptor: closes it when it goes. Move-only.
#pragma once

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace tesselctl {

class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int owned) : fd(owned) {}
    Descriptor(Descriptor&& other) noexcept : fd(std::exchange(other.fd, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(fd, other.fd);
        return *this;
    }
    ~Descriptor() {
        if (fd != -1) close(fd);
    }

    int Get() const { return fd; }
    bool Valid() const { return fd != -1; }

  private:
    int fd = -1;
};

// open(2), repeated when a signal disturbs it, closed on exec; not valid when it failed, with errno
// set.
inline Descriptor OpenFile(const char* path, int flags, mode_t mode = 0) {
    int fd;
    do {
        fd = open(path, flags, mode);
    } while (fd == -1 && errno == EINTR);
    if (fd != -1) fcntl(fd, F_SETFD, FD_CLOEXEC);
    return Descriptor(fd);
}

}  // namespace tesselctl
