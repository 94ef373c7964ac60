#include "CarbonCore/HomeFolder.h"

#include <sys/stat.h>

#include <unistd.h>
#include <cstdlib>
#include <mutex>
#include <set>

#include "Support/Users.h"

namespace frameworks {
namespace {

bool IsFolder(const std::string& path) {
    struct stat status;
    return !path.empty() && path.front() == '/' && stat(path.c_str(), &status) == 0 &&
           S_ISDIR(status.st_mode);
}

// Somebody else's is left alone: what root made there, its owner could not use.
std::optional<std::string> HomeInEnvironment() {
    std::optional<std::string> home = FolderInEnvironment("HOME");
    struct stat status;
    if (!home || stat(home->c_str(), &status) != 0 || status.st_uid != geteuid()) {
        return std::nullopt;
    }
    return home;
}

std::optional<std::string> HomeInDatabase() {
    std::optional<User> user = UserOf(geteuid());
    if (!user || !IsFolder(user->home)) return std::nullopt;
    return std::move(user->home);
}

// Whether HOME has not been seen before.
bool IsNew(const std::string& home) {
    static std::mutex& mutex = *new std::mutex();
    static std::set<std::string>& seen = *new std::set<std::string>();
    const std::lock_guard<std::mutex> lock(mutex);
    return seen.insert(home).second;
}

void MakeStandardFolders(const std::string& home) {
    for (const char* const folder :
         {"/Library", "/Library/Application Support", "/Library/Preferences"}) {
        mkdir((home + folder).c_str(), S_IRWXU);
    }
}

}  // namespace

std::optional<std::string> FolderInEnvironment(const char* name) {
    if (!ActsForTheUserWhoStartedIt()) return std::nullopt;
    const char* const value = std::getenv(name);
    if (value == nullptr || !IsFolder(value)) return std::nullopt;
    return std::string(value);
}

std::optional<std::string> HomeFolder() {
    std::optional<std::string> home = HomeInEnvironment();
    if (!home) {
        home = HomeInDatabase();
    }
    if (home && IsNew(*home)) {
        MakeStandardFolders(*home);
    }
    return home;
}

}  // namespace frameworks
