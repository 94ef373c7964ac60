#include "apps/ProcessManager.h"
#include "commands/ApplicationCommands.h"
#include "commands/CommandHandler.h"
#include "core/Helpers.h"

namespace {

Status Uninstall(const Words& words) {
    const bool done = CommandHandler::UninstallOsApp(words[1], words[2]) == 0;
    return ReplyWithId(done ? L"AirAppUninstallStarted=" : L"AirAppUninstallFailed=", words);
}

Status Install(const Words& words) {
    const bool done = CommandHandler::InstallAirApp(words[1], words[2], words[3]) == 0;
    return ReplyWithId(done ? L"AirAppInstallStarted=" : L"AirAppInstallFailed=", words);
}

Status Upgrade(const Words& words) {
    const bool done = ProcessManager::UpgradeAirApplication(words[1], words[2],
                                                            Helpers::wstringToString(words[3]));
    return ReplyWithId(done ? L"AirAppUpgradeStarted=" : L"AirAppUpgradeFailed=", words);
}

Status IsInstalled(const Words& words) {
    const bool installed = CommandHandler::isAirAppInstalled(words[1], words[2]) == 0;
    return ReplyWithId(installed ? L"AirAppIsInstalled=" : L"AirAppIsNotInstalled=", words);
}

Status Start(const Words& words) {
    const bool started = ProcessManager::StartAirApp(words);
    return ReplyWithId(started ? L"AirAppIsStarted=" : L"AirAppIsNotStarted=", words);
}

constexpr Command kRows[] = {
    {"uninstallAirApp", 2, Uninstall},
    {"installAirApp", 3, Install},
    {"upgradeAirApp", 3, Upgrade},
    {"isAirAppInstalled", 2, IsInstalled},
    {"startAirApplication", kAnyNumberOfArguments, Start},
};

}  // namespace

bool RunAirCommand(const Words& words, Status& status) {
    return RunCommand(kRows, words, status);
}
