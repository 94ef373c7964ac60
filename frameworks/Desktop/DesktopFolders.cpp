#include "Desktop/DesktopFolders.h"

#include <sys/stat.h>

#include <cstdlib>
#include <optional>
#include <string_view>

#include "CarbonCore/HomeFolder.h"
#include "Support/Users.h"

namespace frameworks {
namespace {

constexpr std::string_view kUsualDataFolders = "/usr/local/share:/usr/share";

std::string WithoutClosingSlash(std::string_view path) {
    while (path.size() > 1 && path.back() == '/') {
        path.remove_suffix(1);
    }
    return std::string(path);
}

// Empty when it is not set, or not for us.
std::string_view Variable(const char* name) {
    const char* const value = ActsForTheUserWhoStartedIt() ? std::getenv(name) : nullptr;
    return value == nullptr ? std::string_view() : value;
}

// Whether the folder is there yet does not matter.
std::string UsersFolder(const char* variable, const char* inHome) {
    const std::string_view named = Variable(variable);
    // A path that is not absolute does not count.
    if (!named.empty() && named.front() == '/') return WithoutClosingSlash(named);
    const std::optional<std::string> home = HomeFolder();
    return home ? *home + inHome : std::string();
}

}  // namespace

std::string ConfigurationFolder() {
    return UsersFolder("XDG_CONFIG_HOME", "/.config");
}

std::vector<std::string> DataFolders() {
    std::vector<std::string> folders;
    std::string users = UsersFolder("XDG_DATA_HOME", "/.local/share");
    if (!users.empty()) {
        folders.push_back(std::move(users));
    }
    std::string_view rest = Variable("XDG_DATA_DIRS");
    if (rest.empty()) {
        rest = kUsualDataFolders;
    }
    while (!rest.empty()) {
        const std::string_view folder = rest.substr(0, rest.find(':'));
        rest.remove_prefix(folder.size() < rest.size() ? folder.size() + 1 : folder.size());
        if (!folder.empty() && folder.front() == '/') {
            folders.push_back(WithoutClosingSlash(folder));
        }
    }
    return folders;
}

bool MakeFolder(const std::string& folder) {
    for (std::size_t slash = folder.find('/', 1); slash != std::string::npos;
         slash = folder.find('/', slash + 1)) {
        mkdir(folder.substr(0, slash).c_str(), S_IRWXU);
    }
    mkdir(folder.c_str(), S_IRWXU);
    struct stat status;
    return stat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace frameworks
