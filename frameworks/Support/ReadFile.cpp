#include "Support/ReadFile.h"

#include <fcntl.h>

#include "Support/UniqueDescriptor.h"

namespace frameworks {

std::optional<std::string> ReadFile(const char* path) {
    const UniqueDescriptor file(open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY));
    if (!file.IsOpen()) {
        return std::nullopt;
    }
    std::string content;
    char piece[4096];
    for (;;) {
        const ssize_t length = read(file.Get(), piece, sizeof piece);
        if (length > 0) {
            content.append(piece, static_cast<std::size_t>(length));
        } else if (length == 0) {
            return content;
        } else if (errno != EINTR) {
            return std::nullopt;
        }
    }
}

}  // namespace frameworks
