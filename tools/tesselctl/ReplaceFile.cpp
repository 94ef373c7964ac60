#include "tesselctl/ReplaceFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>

namespace tesselctl {
namespace {

std::string FolderOf(const std::string& path) {
    const std::string folder = std::filesystem::path(path).parent_path().string();
    return folder.empty() ? "." : folder;
}

mode_t NewFilesMode() {
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

// The new file while it does not have its name yet: goes again unless it is given it.
class Beside {
  public:
    explicit Beside(const std::string& path) : name(FolderOf(path) + "/.tesselctl-XXXXXX") {
        const int descriptor = mkstemp(name.data());
        if (descriptor == -1) return;
        fcntl(descriptor, F_SETFD, FD_CLOEXEC);
        file = fdopen(descriptor, "wb");
        if (file == nullptr) close(descriptor);
    }
    ~Beside() {
        // What is in it is given up.
        if (file != nullptr) static_cast<void>(std::fclose(file));
        if (!isNamed) unlink(name.c_str());
    }
    Beside(const Beside&) = delete;
    Beside& operator=(const Beside&) = delete;

    std::FILE* File() const { return file; }

    // False with errno set.
    bool TakeName(const std::string& path) {
        if (fchmod(fileno(file), NewFilesMode()) != 0) return false;
        if (std::fclose(std::exchange(file, nullptr)) != 0) return false;
        isNamed = rename(name.c_str(), path.c_str()) == 0;
        return isNamed;
    }

  private:
    std::string name;
    std::FILE* file = nullptr;
    bool isNamed = false;
};

}  // namespace

std::string WhyNotReplaceable(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) == 0) {
        if (S_ISDIR(status.st_mode)) return "it is a folder";
        if (!S_ISREG(status.st_mode)) return "it is not a regular file";
    } else if (errno != ENOENT) {
        return std::strerror(errno);
    }
    return access(FolderOf(path).c_str(), W_OK | X_OK) == 0 ? std::string() : std::strerror(errno);
}

std::string ReplaceFile(const std::string& path,
                        const std::function<std::string(std::FILE*)>& write) {
    std::string why = WhyNotReplaceable(path);
    if (!why.empty()) return why;
    Beside beside(path);
    if (beside.File() == nullptr) return std::strerror(errno);
    why = write(beside.File());
    if (!why.empty()) return why;
    return beside.TakeName(path) ? std::string() : std::strerror(errno);
}

}  // namespace tesselctl
