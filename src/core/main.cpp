// The service from its start to its end. The order of the steps is the contract: who the process is
// decides what each of the later ones may do.

#include <CoreFoundation/CoreFoundation.h>

#include "core/CrashHandler.h"
#include "core/Helpers.h"
#include "core/OutOfMemory.h"
#include "core/StandardOutput.h"
#include "core/SystemLoginItem.h"
#include "core/UninstallManager.h"
#include "core/Updater.h"
#include "net/ConnectionManager.h"
#include "system/CFPreferencesManager.h"

int main(int /*argc*/, char** argv) {
    WaitForMemoryWhenThereIsNone();
    OpenStandardDescriptors();
    FlushStandardOutputBeforeWaiting();
    Helpers::setProcessPath(argv[0]);
    Helpers::printCoreVersion();
    CFPreferencesManager::RemoveAsStartupItem(L"Tessel Dock.app");
    SystemLoginItem::WaitForAndTransformToLoginUser();
    UninstallManager::UninstallIfDockMissing();
    Helpers::logprint(Helpers::getCurrentPath());
    CrashHandler::Init();
    Helpers::logprint("Starting server...");
    const int ok = ConnectionManager::Init();
    if (ok != 0) {
        ConnectionManager::HandleRequests();
    }
    Helpers::logprint("Quitting...");
    Updater::CheckAndHandleUpdates();
    Helpers::deInitFileLogging();
    return ok;
}
