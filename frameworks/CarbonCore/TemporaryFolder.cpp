#include "CarbonCore/TemporaryFolder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <mutex>

#include "CarbonCore/HomeFolder.h"

namespace frameworks {
namespace {

bool IsOurs(const std::string& path) {
    constexpr mode_t kOurFolder = S_IFDIR | S_IRWXU;
    struct stat status;
    return lstat(path.c_str(), &status) == 0 && status.st_uid == geteuid() &&
           status.st_mode == kOurFolder;
}

// Whether what is ours in FOLDER can be replaced by nobody but us and root.
bool IsSafe(const std::string& folder) {
    struct stat status;
    if (stat(folder.c_str(), &status) != 0) return false;
    const bool isTrusted = status.st_uid == geteuid() || status.st_uid == 0;
    return isTrusted &&
           ((status.st_mode & (S_IWGRP | S_IWOTH)) == 0 || (status.st_mode & S_ISVTX) != 0);
}

std::string Base() {
    const std::optional<std::string> named = FolderInEnvironment("TMPDIR");
    return named && IsSafe(*named) ? *named : std::string("/tmp");
}

// What was found last, and for whom.
struct Found {
    std::mutex mutex;
    uid_t user = 0;
    std::string folder;
};

Found& LastFound() {
    static Found& found = *new Found();
    return found;
}

}  // namespace

int FindTemporaryFolderIn(const std::string& base, bool makesIt, std::string& folder) {
    const std::string usual = base + "/TemporaryItems-" + std::to_string(geteuid());
    if (makesIt) {
        // That it is there already, and whatever else is wrong with it, shows in the next step.
        mkdir(usual.c_str(), S_IRWXU);
    }
    if (IsOurs(usual)) {
        folder = usual;
        return 0;
    }
    if (!makesIt) return ENOENT;
    std::string fresh = usual + ".XXXXXX";
    if (mkdtemp(fresh.data()) == nullptr) return errno;
    folder = fresh;
    return 0;
}

int FindTemporaryFolder(bool makesIt, std::string& folder) {
    Found& found = LastFound();
    const std::lock_guard<std::mutex> lock(found.mutex);
    if (found.folder.empty() || found.user != geteuid() || !IsOurs(found.folder)) {
        std::string fresh;
        const int error = FindTemporaryFolderIn(Base(), makesIt, fresh);
        if (error != 0) return error;
        found.user = geteuid();
        found.folder = fresh;
    }
    folder = found.folder;
    return 0;
}

}  // namespace frameworks
