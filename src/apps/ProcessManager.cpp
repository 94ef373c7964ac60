#include "apps/ProcessManager.h"

#include <sys/stat.h>

#include "apps/Paths.h"
#include "core/Helpers.h"

const wchar_t* const ProcessManager::exeManager = L"Tessel Dock";
const wchar_t* const ProcessManager::installManager =
    L"/Library/Frameworks/Adobe AIR.framework/Versions/Current/"
    L"Adobe AIR Application Installer.app/Contents/MacOS/Adobe AIR Application Installer";
const char* const ProcessManager::airAppInstallLocation = "/Applications/Tessel Dock/Apps/";

bool ProcessManager::CheckFileExists(const std::wstring& path) {
    return MayExist(Helpers::wstringToUtf8(path));
}

bool ProcessManager::IsSubPath(const std::wstring& path, const std::wstring& root) {
    return Helpers::str_prefix(root, path) && path.find(L"..") == std::wstring::npos;
}

bool ProcessManager::FixPermissions(const std::wstring& path, bool executable) {
    return chmod(Helpers::wstringToUtf8(path).c_str(), executable ? 0777 : 0666) == 0;
}
