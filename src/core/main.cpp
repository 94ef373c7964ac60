// The service from its start to its end. The order of the steps is the contract: who the process is
// decides what each of the later ones may do.

#include <CoreFoundation/CoreFoundation.h>

#include "core/CrashHandler.h"
#include "core/Helpers.h"
#include "core/StandardOutput.h"
#include "core/SystemLoginItem.h"
#include "net/ConnectionManager.h"

int main(int /*argc*/, char** argv) {
    OpenStandardDescriptors();
    FlushStandardOutputBeforeWaiting();
    Helpers::setProcessPath(argv[0]);
    Helpers::printCoreVersion();
    SystemLoginItem::WaitForAndTransformToLoginUser();
    Helpers::logprint(Helpers::getCurrentPath());
    CrashHandler::Init();
    Helpers::logprint("Starting server...");
    const int ok = ConnectionManager::Init();
    if (ok != 0) {
        ConnectionManager::HandleRequests();
    }
    Helpers::logprint("Quitting...");
    Helpers::deInitFileLogging();
    return ok;
}
