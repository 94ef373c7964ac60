#include "apps/AuthorizeExecute.h"
#include "apps/Paths.h"
#include "apps/ProcessManager.h"
#include "apps/RmDir.h"
#include "apps/Scripts.h"
#include "core/Helpers.h"
#include "core/Owners.h"
#include "core/Pause.h"

namespace {

constexpr unsigned kSecondsBeforeRemoval = 1;

std::string ErrorText(OSStatus status) {
    return GetMacOSStatusErrorString(status);
}

void RemoveElevated(const std::string& name, const std::string& path) {
    Helpers::logprintf("UninstallAirApp: Unable to uninstall without privileges %s", name);
    const std::string script = Helpers::getTempFolder() + "TesselApp" + name + ".sh";
    Helpers::logprintf("Starting script to uninstall %s", name);
    if (Scripts::GenerateRemoveDirectoryScriptFile(script, path)) {
        // Whether it worked shows in whether the folder is still there.
        AuthorizeExecute::StartElevatedScript(script);
    }
}

}  // namespace

int ProcessManager::RemoveDirectory(const FSRef* folder) {
    Pause(kSecondsBeforeRemoval);
    return RmDir().remove(folder, 1);
}

bool ProcessManager::UninstallOsApp(const std::wstring& name, const std::wstring& applicationId,
                                    bool elevationAllowed) {
    if (Helpers::isNullOrEmpty(name)) {
        Helpers::logprint("UninstallAirApp: Argument null or empty.");
        return true;
    }
    const std::string shortName = Helpers::wstringToString(name);
    if (applicationId.empty()) {
        Helpers::logprintf("UninstallAirApp: Second argument missing (Widget OSID) for widget %s",
                           shortName);
        return true;
    }
    FSRef application = {};
    const auto identifier = CFOwner<CFStringRef>::Adopt(Helpers::wstringToCFString(applicationId));
    const OSStatus status = identifier
                                ? LSFindApplicationForInfo(kLSUnknownCreator, identifier.Get(),
                                                           nullptr, &application, nullptr)
                                : kLSApplicationNotFoundErr;
    const bool removed = status == kLSApplicationNotFoundErr || status == kLSAppInTrashErr ||
                         (status == noErr && RemoveDirectory(&application) == 1);
    // After the attempt: of a folder that is gone no path can be made, and the last test answers
    // true.
    const std::string path = PathOfReference(application);
    if (!removed && elevationAllowed) {
        if (status != noErr) {
            Helpers::logprintf("UninstallAirApp: Unexpected error %s", ErrorText(status));
            return true;
        }
        RemoveElevated(shortName, path);
    }
    Helpers::logprint(L"UninstallAirApp: Uninstallation started for " + name);
    const OSStatus registered = LSRegisterFSRef(&application, true);
    Helpers::logprintf("found item unregistration res: %s", ErrorText(registered));
    // As bytes: a name that is not UTF-8 would be another one as wide text.
    return !MayExist(path);
}
