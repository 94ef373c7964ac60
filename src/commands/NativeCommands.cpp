#include <Carbon/Carbon.h>

#include <algorithm>

#include "apps/AuthorizeExecute.h"
#include "apps/Paths.h"
#include "apps/ProcessManager.h"
#include "apps/ProcessOpenManager.h"
#include "commands/ApplicationCommands.h"
#include "commands/CommandHandler.h"
#include "core/Helpers.h"
#include "core/Owners.h"
#include "core/Pause.h"

namespace {

constexpr char kInstaller[] = "/usr/sbin/installer";
constexpr char kTarget[] = "LocalSystem";
constexpr unsigned kSecondsToQuit = 1;

bool Run(const std::string& command, std::string& output, bool withErrorOutput) {
    return ProcessOpenManager::getInstance()->open(command.c_str(), "r", &output, withErrorOutput);
}

bool IsZip(const std::wstring& path) {
    std::wstring extension = Helpers::getExtension(path);
    std::transform(extension.begin(), extension.end(), extension.begin(), [](wchar_t unit) {
        return unit >= L'A' && unit <= L'Z' ? unit + (L'a' - L'A') : unit;
    });
    return extension == L".zip";
}

// Unpacks the archive at PATH beside it and takes the ending off PATH: what is left is the package.
void Unpack(std::string& path, std::string& output, bool withErrorOutput) {
    constexpr std::size_t kEndingLength = 4;
    // An archive that is named without a folder lies, and is unpacked, in the current one.
    std::string folder = ".";
    std::string name;
    Helpers::splitPath(path, folder, name);
    Run("ditto -xk '" + path + "' '" + folder + "'", output, withErrorOutput);
    path.resize(path.size() - kEndingLength);
}

// A link that the archive held, or that was there before, may lead to any folder of the user's; and
// an archive that is called just ".zip" leaves no name for a package, only the folder it lies in.
void RemoveUnpacked(const std::string& package) {
    const PathReference unpacked = ReferenceToFolderAt(package);
    if (unpacked.exists) {
        ProcessManager::RemoveDirectory(&unpacked.ref);
    }
}

bool NeedsAdministrator(const std::string& output) {
    return output.find("failed") != std::string::npos ||
           output.find("Must be run as root") != std::string::npos;
}

// Installs the package, plain or zipped, that word 3 names.
bool InstallPackage(const Words& words, bool withErrorOutput) {
    std::string package = Helpers::wstringToString(words[3]);
    std::string output;
    const bool zipped = IsZip(words[3]);
    if (zipped) {
        Unpack(package, output, withErrorOutput);
    }
    bool installed = Run(std::string(kInstaller) + " -pkg '" + package + "' -target " + kTarget,
                         output, withErrorOutput);
    if (NeedsAdministrator(output)) {
        // Other than elsewhere 0, which is also the code of a tool that prints nothing, counts as
        // failed. Docks know it so.
        installed = AuthorizeExecute::StartElevatedTool(
                        kInstaller, {"-pkg", package.c_str(), "-target", kTarget}) != noErr;
    }
    if (zipped) {
        RemoveUnpacked(package);
    }
    return installed;
}

bool FindRunning(const std::wstring& bundleIdentifier, ProcessSerialNumber& psn) {
    const auto identifier =
        CFOwner<CFStringRef>::Adopt(Helpers::wstringToCFString(bundleIdentifier));
    return identifier && ProcessManager::FindPSNForProcessID(&psn, nullptr, identifier.Get());
}

bool StopApplication(const std::wstring& bundleIdentifier) {
    const bool asked = ProcessManager::QuitApplication(bundleIdentifier);
    Pause(kSecondsToQuit);
    ProcessSerialNumber psn = {0, kNoProcess};
    if (FindRunning(bundleIdentifier, psn)) {
        return KillProcess(&psn) == noErr;
    }
    return asked;
}

// Error output is collected for an installation and not for an upgrade.
Status Install(const Words& words) {
    const bool done = InstallPackage(words, true);
    return ReplyWithId(done ? L"NativeAppInstallStarted=" : L"NativeAppInstallFailed=", words);
}

Status Upgrade(const Words& words) {
    const bool done = InstallPackage(words, false);
    return ReplyWithId(done ? L"NativeAppUpgradeStarted=" : L"NativeAppUpgradeFailed=", words);
}

Status Uninstall(const Words& words) {
    const bool done = CommandHandler::UninstallOsApp(words[1], words[2]) == 0;
    return ReplyWithId(done ? L"NativeAppUninstallStarted=" : L"NativeAppUninstallFailed=", words);
}

Status IsInstalled(const Words& words) {
    const bool installed = CommandHandler::isNativeAppInstalled(words[1], words[2]) == 0;
    return ReplyWithId(installed ? L"NativeAppIsInstalled=" : L"NativeAppIsNotInstalled=", words);
}

Status Start(const Words& words) {
    const bool started = ProcessManager::StartNativeApp(words);
    return ReplyWithId(started ? L"NativeAppIsStarted=" : L"NativeAppIsNotStarted=", words);
}

Status Stop(const Words& words) {
    const bool stopped = StopApplication(words[2]);
    return ReplyWithId(stopped ? L"NativeAppIsStopped=" : L"NativeAppIsNotStopped=", words);
}

Status IsRunning(const Words& words) {
    ProcessSerialNumber psn = {0, kNoProcess};
    const bool running = FindRunning(words[2], psn);
    return ReplyWithId(running ? L"NativeAppIsRunning=" : L"NativeAppIsNotRunning=", words);
}

constexpr Command kRows[] = {
    {"installNativeApp", 3, Install},     {"uninstallNativeApp", 2, Uninstall},
    {"upgradeNativeApp", 3, Upgrade},     {"isNativeAppInstalled", 2, IsInstalled},
    {"startNativeApplication", 2, Start}, {"stopNativeApplication", 2, Stop},
    {"isNativeAppRunning", 2, IsRunning},
};

}  // namespace

bool RunNativeCommand(const Words& words, Status& status) {
    return RunCommand(kRows, words, status);
}
