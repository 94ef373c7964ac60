#include "core/Updater.h"

#include <cstdlib>

#include "apps/ProcessManager.h"
#include "apps/Scripts.h"
#include "core/Helpers.h"
#include "core/Pause.h"

bool Updater::updateRequested = false;

namespace {

constexpr char kScriptName[] = "TesselCoreUpdate.sh";
constexpr char kPlaceholder[] = "###";
constexpr char kProgram[] =
    "/Library/Application Support/Velto/TesselCore.app/Contents/MacOS/TesselCore";
constexpr unsigned kSecondsBeforeRestart = 2;

std::string& UpdatePath() {
    static std::string& path = *new std::string();
    return path;
}

}  // namespace

void Updater::SetUpdatePath(const std::wstring& path) {
    UpdatePath() = Helpers::wstringToUtf8(path);
}

bool Updater::TryInstallUpdate() {
    if (!updateRequested || !Helpers::isUserAdminType()) {
        return false;
    }
    Helpers::logprint("Updating!");
    const std::string script =
        Helpers::replace(Scripts::coreUpdateScript, kPlaceholder, UpdatePath());
    const bool elevated = Scripts::RequiresElevation(kProgram);
    return Scripts::WriteAndRunScript(kScriptName, script, elevated);
}

void Updater::CheckAndHandleUpdates() {
    Helpers::logprint("Checking updates...");
    if (!TryInstallUpdate()) {
        return;
    }
    Pause(kSecondsBeforeRestart);
    ProcessManager::HotReboot();
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no handler or destructor has work to do at exit
    std::exit(0);
}
