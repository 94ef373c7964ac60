#include "apps/AuthorizeExecute.h"
#include "apps/DirectoryTraverser.h"
#include "apps/Paths.h"
#include "apps/ProcessManager.h"
#include "apps/Scripts.h"
#include "core/Helpers.h"
#include "core/Owners.h"
#include "core/Pause.h"

namespace {

constexpr int kRounds = 20;
constexpr unsigned kSecondsPerRound = 5;

std::string ScriptPath(const char* prefix, const std::wstring& name) {
    return Helpers::getTempFolder() + prefix + Helpers::wstringToString(name) + ".sh";
}

std::string InstallerPath() {
    return Helpers::wstringToString(ProcessManager::installManager);
}

// Waits until Launch Services knows the application, after an installer that ran with administrator
// rights.
bool WaitUntilInstalled(const std::wstring& name, const std::wstring& applicationId) {
    FSRef application = {};
    for (int round = 0; round < kRounds; ++round) {
        ProcessManager::TouchTesselApplications();
        Pause(kSecondsPerRound);
        if (ProcessManager::isOsAppInstalled(name, applicationId, &application) == 1) {
            return true;
        }
    }
    return ProcessManager::isOsAppInstalled(name, applicationId, &application) == 1;
}

bool InstallElevated(const std::wstring& name, const std::wstring& applicationId,
                     const std::string& arguments) {
    const std::string script = ScriptPath("TesselAppInstall", name);
    Helpers::logprintf("Starting script to install %s", Helpers::wstringToString(name));
    if (!Scripts::GenerateInstallAirAppScriptFile(script, InstallerPath(), arguments)) {
        return false;
    }
    // Whether it worked shows in what is installed afterwards.
    AuthorizeExecute::StartElevatedScript(script);
    return WaitUntilInstalled(name, applicationId);
}

bool Exists(const std::string& path) {
    return ProcessManager::CheckFileExists(Helpers::stringToWString(path));
}

}  // namespace

int ProcessManager::isOsAppInstalled(const std::wstring& name, const std::wstring& applicationId,
                                     FSRef* ref) {
    if (Helpers::isNullOrEmpty(name)) {
        Helpers::logprint("isOsAppInstalled: Argument null or empty.");
        return 0;
    }
    if (applicationId.empty()) {
        Helpers::logprint(L"isOsAppInstalled: Second argument missing (App OSID) for widget" +
                          name);
        return 0;
    }
    const auto identifier = CFOwner<CFStringRef>::Adopt(Helpers::wstringToCFString(applicationId));
    if (!identifier || LSFindApplicationForInfo(kLSUnknownCreator, identifier.Get(), nullptr, ref,
                                                nullptr) != noErr) {
        Helpers::logprint(L"isOsAppInstalled: Not Installed " + name);
        return 0;
    }
    Helpers::logprint(L"isOsAppInstalled: Installed " + name);
    return 1;
}

std::string ProcessManager::GenerateAirInstallerArguments(const std::string& package) {
    return std::string("-silent -eulaAccepted -location \"") + airAppInstallLocation + "\" \"" +
           package + "\"";
}

bool ProcessManager::InstallAirApplication(const std::wstring& name,
                                           const std::wstring& applicationId,
                                           const std::string& package, bool elevationAllowed) {
    Helpers::logprint("Opening install manager at:");
    Helpers::logprint(std::wstring(installManager));
    if (!CheckFileExists(installManager)) {
        Helpers::logprint("InstallAirApplication - can not find air installer file - ");
        Helpers::logprint(std::wstring(installManager));
        return false;
    }
    if (!Exists(package)) {
        Helpers::logprint("InstallAirApplication - can not find air installation package - ");
        Helpers::logprint(package);
        return false;
    }
    const std::string arguments = GenerateAirInstallerArguments(package);
    Helpers::logprint("Installer arguments: " + arguments);
    if (!OpenProcessWithArguments(installManager, Helpers::stringToWString(arguments))) {
        Helpers::logprint("can not start installer");
        return false;
    }
    Helpers::logprint("Installer started:");
    FSRef application = {};
    if (isOsAppInstalled(name, applicationId, &application) == 1) {
        if (LSRegisterFSRef(&application, true) == noErr) {
            Helpers::logprintf("Application %s is registered.", Helpers::wstringToString(name));
        }
        return true;
    }
    return elevationAllowed && InstallElevated(name, applicationId, arguments);
}

bool ProcessManager::UpgradeAirApplication(const std::wstring& name,
                                           const std::wstring& applicationId,
                                           const std::string& package) {
    FSRef application = {};
    const bool wasInstalled = isOsAppInstalled(name, applicationId, &application) == 1;
    const std::string oldPath = PathOfReference(application);
    if (UninstallOsApp(name, applicationId, false)) {
        return InstallAirApplication(name, applicationId, package, true);
    }
    const std::string script = ScriptPath("TesselAppUpdate", name);
    Helpers::logprintf("Starting script to update %s", Helpers::wstringToString(name));
    if (!Scripts::GenerateUpgradeAirAppScriptFile(script, oldPath, InstallerPath(),
                                                  GenerateAirInstallerArguments(package))) {
        return false;
    }
    AuthorizeExecute::StartElevatedScript(script);
    // Deliberately what was so before: an application that was there counts as upgraded at once.
    return wasInstalled || WaitUntilInstalled(name, applicationId);
}

void ProcessManager::TouchTesselApplications() {
    const PathReference apps = ReferenceTo(airAppInstallLocation);
    if (!apps.isFolder) {
        return;
    }
    DirectoryTraverser entries(&apps.ref, 0);
    for (const FSRef* entry = entries.First(); entry != nullptr; entry = entries.Next()) {
        if (!entries.CurrentIsDirectory()) {
            continue;
        }
        // The folder itself, not the entry, once for every entry.
        const OSStatus status = LSRegisterFSRef(&apps.ref, true);
        Helpers::logprintf("Info: folder is: %s", PathOfReference(*entry));
        Helpers::logprintf("found item registration res: %s",
                           std::string(GetMacOSStatusErrorString(status)));
    }
}
