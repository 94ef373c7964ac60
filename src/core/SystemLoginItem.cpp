#include "core/SystemLoginItem.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdio>

#include "core/Helpers.h"
#include "core/Owners.h"

bool SystemLoginItem::runningEventLoop = false;

namespace {

// initgroups takes an int on the Mac and a gid_t elsewhere.
template <typename Group>
int InitGroups(int (*call)(const char*, Group), const passwd& entry) {
    return call(entry.pw_name, static_cast<Group>(entry.pw_gid));
}

// Root's groups must go before root's rights do. A real user id of 0 still has the right to take
// the effective one back.
void TakeGroupsOf(uid_t uid) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread has been started yet
    const passwd* const entry = getpwuid(uid);
    if (uid == 0 || entry == nullptr) {
        return;
    }
    if (geteuid() != 0 && seteuid(0) != 0) {
        return;
    }
    if (InitGroups(initgroups, *entry) != 0 || setgid(entry->pw_gid) != 0) {
        Helpers::logprint("Unable to take over the groups of the console user.");
    }
}

// Where setuid leaves the real and the saved id alone because the effective one is no longer
// root's, root would be one call away, and every shell would run as root.
void LeaveNoWayBack(uid_t uid) {
    if (setreuid(uid, uid) != 0) {
        Helpers::logprint("Unable to give up the identity that the service was started with.");
    }
}

}  // namespace

bool SystemLoginItem::IsUIServerRunning() {
    return false;
}

void SystemLoginItem::WaitForAndTransformToLoginUser() {
    runningEventLoop = false;
    const uid_t uid = getuid();
    const gid_t gid = getgid();
    const uid_t euid = geteuid();
    std::printf("User id: %d, group id: %d, real id: %d\n", static_cast<int>(uid),
                static_cast<int>(gid), static_cast<int>(euid));
    if (uid != 0) {
        std::puts("Running as user: do normal stuff.");
        return;
    }
    if (euid != 0) {
        Helpers::logprint("Running as normal user, but UID wrong.");
        OnUserLoggedIn();
        return;
    }
    std::puts("Running as root: check for UI Server.");
    if (IsUIServerRunning()) {
        std::puts("User logged in (autologin), starting copy.");
        OnUserLoggedIn();
        return;
    }
    std::puts("Waiting for UI Server to start.");
    InstallWindowServerEventListener();
    runningEventLoop = true;
    RunApplicationEventLoop();
    // The handler stays, and the loops that run from here on are not its to end.
    runningEventLoop = false;
    CFShow(CFSTR("Performed user switch (from root to normal user)"));
}

void SystemLoginItem::InstallWindowServerEventListener() {
    const EventTypeSpec launched[] = {{kEventClassApplication, kEventAppLaunched}};
    InstallEventHandler(GetApplicationEventTarget(), NewEventHandlerUPP(AppLaunchedEventHandler),
                        GetEventTypeCount(launched), launched, nullptr, nullptr);
}

OSStatus SystemLoginItem::AppLaunchedEventHandler(EventHandlerCallRef /*callRef*/, EventRef event,
                                                  void* /*userData*/) {
    ProcessSerialNumber psn = {0, 0};
    GetEventParameter(event, kEventParamProcessID, typeProcessSerialNumber, nullptr, sizeof psn,
                      nullptr, &psn);
    CFStringRef name = CFSTR("<undefined>");
    CopyProcessName(&psn, &name);
    if (name == nullptr) {
        return noErr;
    }
    const auto owner = CFOwner<CFStringRef>::Adopt(name);
    if (GetEventKind(event) == kEventAppLaunched) {
        CFShow(name);
        if (CFStringCompare(name, CFSTR("SystemUIServer"), 0) == kCFCompareEqualTo) {
            std::puts("User logged in (login window), starting copy!");
            OnUserLoggedIn();
        }
    }
    return noErr;
}

void SystemLoginItem::OnUserLoggedIn() {
    Helpers::logprint("User logged in...");
    const uid_t uid = Helpers::GetCurrentUserUID();
    TakeGroupsOf(uid);
    // A refusal shows in what follows: the process goes on under the identity that it has.
    const bool switched = seteuid(uid) == 0 && setuid(uid) == 0;
    static_cast<void>(switched);
    LeaveNoWayBack(uid);
    Helpers::initFileLogging();
    if (runningEventLoop) {
        QuitApplicationEventLoop();
    }
}
