#include "core/UninstallManager.h"

#include <cstdlib>

#include "apps/ProcessManager.h"
#include "apps/Scripts.h"
#include "core/Helpers.h"

namespace {

constexpr char kScriptName[] = "TesselCoreUninstall.sh";
constexpr char kBundle[] = "/Library/Application Support/Velto/TesselCore.app";
constexpr wchar_t kDock[] = L"/Applications/Tessel Dock/Tessel Dock.app/";

}  // namespace

bool UninstallManager::UninstallCore() {
    Helpers::logprint("Uninstalling!");
    const bool elevated = Scripts::RequiresElevation(kBundle);
    return Scripts::WriteAndRunScript(kScriptName, Scripts::coreUninstallScript, elevated);
}

void UninstallManager::UninstallIfDockMissing() {
    if (ProcessManager::CheckFileExists(kDock) || !Helpers::isUserAdminType()) {
        return;
    }
    UninstallCore();
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no handler or destructor has work to do at exit
    std::exit(0);
}
