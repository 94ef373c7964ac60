#include "tesselctl/Paths.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

namespace tesselctl {

std::string UserHome() {
    const char* home = std::getenv("HOME");
    if (home != nullptr && *home != '\0') return home;
    const passwd* user = getpwuid(getuid());
    return user != nullptr && user->pw_dir != nullptr ? user->pw_dir : "/";
}

std::string AbsolutePath(const std::string& path) {
    std::error_code error;
    std::filesystem::path absolute = std::filesystem::absolute(path, error);
    if (error) absolute = path;
    // Not the parts "..": behind a link they lead elsewhere.
    std::filesystem::path plain;
    for (const std::filesystem::path& part : absolute)
        if (!part.empty() && part != ".") plain /= part;
    return plain.string();
}

std::string FileNameOf(const std::string& path) {
    return std::filesystem::path(path).filename().string();
}

bool Exists(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 || (errno != ENOENT && errno != ENOTDIR);
}

bool IsFolder(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace tesselctl
