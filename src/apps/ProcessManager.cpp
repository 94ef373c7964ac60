#include "apps/ProcessManager.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "apps/Paths.h"
#include "core/Helpers.h"

const wchar_t* const ProcessManager::exeManager = L"Tessel Dock";
const wchar_t* const ProcessManager::installManager =
    L"/Library/Frameworks/Adobe AIR.framework/Versions/Current/"
    L"Adobe AIR Application Installer.app/Contents/MacOS/Adobe AIR Application Installer";
const char* const ProcessManager::airAppInstallLocation = "/Applications/Tessel Dock/Apps/";

namespace {

bool IsStrangersLink(const struct stat& status) {
    return S_ISLNK(status.st_mode) && status.st_uid != 0 && status.st_uid != geteuid();
}

bool HasSecondNameWhereAllMayWrite(const std::string& path) {
    struct stat file = {};
    struct stat folder = {};
    return stat(path.c_str(), &file) == 0 && S_ISREG(file.st_mode) && file.st_nlink > 1 &&
           stat((path.substr(0, path.rfind('/')) + "/").c_str(), &folder) == 0 &&
           (folder.st_mode & S_IWOTH) != 0;
}

// Whether another user may have chosen which file is at PATH: by a link on the way, or by a second
// name for a file of ours. Where clients let everybody write, everybody can lay such things.
bool IsChosenByStranger(const std::string& path) {
    struct stat status = {};
    for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        if (lstat(path.substr(0, end).c_str(), &status) == 0 && IsStrangersLink(status)) {
            return true;
        }
        if (end == std::string::npos) {
            break;
        }
    }
    return HasSecondNameWhereAllMayWrite(path);
}

}  // namespace

bool ProcessManager::CheckFileExists(const std::wstring& path) {
    return MayExist(Helpers::wstringToUtf8(path));
}

bool ProcessManager::IsSubPath(const std::wstring& path, const std::wstring& root) {
    return Helpers::str_prefix(root, path) && path.find(L"..") == std::wstring::npos;
}

bool ProcessManager::FixPermissions(const std::wstring& path, bool executable) {
    const std::string file = Helpers::wstringToUtf8(path);
    if (IsChosenByStranger(file)) {
        errno = EPERM;
        return false;
    }
    return chmod(file.c_str(), executable ? 0777 : 0666) == 0;
}
