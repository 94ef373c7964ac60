#include "support/Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "support/Descriptor.h"
#include "support/Waiting.h"

namespace {

[[noreturn]] void Fail(const std::string& what) {
    throw Failed(what + ": " + std::strerror(errno));
}

struct stat StatusOf(const std::filesystem::path& path) {
    struct stat status;
    if (lstat(path.c_str(), &status) != 0) {
        Fail(path.string());
    }
    return status;
}

}  // namespace

std::string ReadAll(int descriptor) {
    std::string content;
    char buffer[65536];
    for (;;) {
        const ssize_t count = read(descriptor, buffer, sizeof buffer);
        if (count > 0) {
            content.append(buffer, static_cast<std::size_t>(count));
        } else if (count == 0) {
            return content;
        } else if (errno != EINTR) {
            Fail("read");
        }
    }
}

std::string ReadFile(const std::filesystem::path& path) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) {
        Fail(path.string());
    }
    return ReadAll(file.Get());
}

std::string ReadFileIfAny(const std::filesystem::path& path) {
    std::error_code none;
    const Descriptor file(std::filesystem::is_regular_file(path, none)
                              ? open(path.c_str(), O_RDONLY | O_CLOEXEC)
                              : -1);
    return file ? ReadAll(file.Get()) : std::string();
}

void WriteFile(const std::filesystem::path& path, const std::string& content) {
    const Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!file ||
        write(file.Get(), content.data(), content.size()) != static_cast<ssize_t>(content.size())) {
        Fail(path.string());
    }
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

std::string LastLines(const std::string& text, std::size_t count) {
    constexpr std::size_t kWidest = 300;
    const std::vector<std::string> lines = Lines(text);
    std::string last;
    for (std::size_t i = lines.size() > count ? lines.size() - count : 0; i < lines.size(); ++i) {
        last += "    " + lines[i].substr(0, kWidest) + "\n";
    }
    return last;
}

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::size_t CountOf(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos;
         at = text.find(part, at + part.size())) {
        ++count;
    }
    return count;
}

unsigned ModeOf(const std::filesystem::path& path) {
    return StatusOf(path).st_mode & 07777U;
}

unsigned OwnerOf(const std::filesystem::path& path) {
    return StatusOf(path).st_uid;
}
