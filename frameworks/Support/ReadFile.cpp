#include "Support/ReadFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <limits>

#include "Support/UniqueDescriptor.h"

namespace frameworks {
namespace {

std::optional<std::string> ReadAll(int file, std::size_t most) {
    std::string content;
    char piece[4096];
    for (;;) {
        const ssize_t length = read(file, piece, sizeof piece);
        if (length > 0) {
            if (static_cast<std::size_t>(length) > most - content.size()) {
                errno = EFBIG;
                return std::nullopt;
            }
            content.append(piece, static_cast<std::size_t>(length));
        } else if (length == 0) {
            return content;
        } else if (errno != EINTR) {
            return std::nullopt;
        }
    }
}

}  // namespace

std::optional<std::string> ReadFile(const char* path) {
    const UniqueDescriptor file(open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY));
    if (!file.IsOpen()) {
        return std::nullopt;
    }
    return ReadAll(file.Get(), std::numeric_limits<std::size_t>::max());
}

std::optional<std::string> ReadRegularFile(const char* path, std::size_t most) {
    const UniqueDescriptor file(open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    struct stat status;
    if (!file.IsOpen() || fstat(file.Get(), &status) != 0) {
        return std::nullopt;
    }
    if (!S_ISREG(status.st_mode) || static_cast<std::size_t>(status.st_size) > most) {
        errno = EFBIG;
        return std::nullopt;
    }
    return ReadAll(file.Get(), most);
}

}  // namespace frameworks
