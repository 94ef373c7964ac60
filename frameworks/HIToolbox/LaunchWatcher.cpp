#include "HIToolbox/LaunchWatcher.h"

#include <HIToolbox/CarbonEvents.h>

#include "HIServices/SessionShell.h"
#include "HIToolbox/EventHandlers.h"
#include "Support/LoginSession.h"

namespace frameworks {
namespace {

// Set while there is one; its references are the run loop's.
LaunchWatcher* theWatcher = nullptr;

}  // namespace

void LaunchWatcher::Keep(bool wanted) {
    if (wanted == (theWatcher != nullptr)) return;
    if (wanted) {
        const auto watcher = Ref<LaunchWatcher>::Adopt(new LaunchWatcher());
        __CFRunLoop::Main().Add(*watcher);
        watcher->CallAfter(interval);
        theWatcher = watcher.Get();
    } else {
        theWatcher->Invalidate();
        theWatcher = nullptr;
    }
}

LaunchWatcher::LaunchWatcher() : __CFRunLoopSource(-1, std::nullopt, 0) {
    LookForProcesses(false);
    LookForSession(false);
}

void LaunchWatcher::TimedOut() {
    // First the session, whose leader may be new in /proc as well and is announced only once.
    LookForSession(true);
    LookForProcesses(true);
    CallAfter(interval);
}

void LaunchWatcher::LookForProcesses(bool announces) {
    ++round;
    ForEachProcess([this, announces](pid_t pid, ino_t inode) { Meet(pid, inode, announces); });
    for (auto entry = known.begin(); entry != known.end();) {
        entry = entry->second.round == round ? std::next(entry) : known.erase(entry);
    }
}

void LaunchWatcher::Meet(pid_t pid, ino_t inode, bool announces) {
    const auto now = __CFRunLoop::Clock::now();
    Known& entry = known[pid];
    entry.round = round;
    if (entry.inode == inode && entry.settled < now) return;
    const std::optional<ProcessStatus> status = StatusOf(pid);
    if (!status) return;
    entry.inode = inode;
    if (entry.startTime != status->startTime) {
        // Another process than the one that had the number before.
        entry.startTime = status->startTime;
        entry.name.clear();
        entry.settled = announces && !status->isKernelThread ? now + timeToSettle : now;
        // A copy of its parent is about to become a program, more often than not; if it does not,
        // it is announced the next time.
        if (announces && status->isMereCopy) return;
    }
    if (entry.name == status->name) return;
    entry.name = status->name;
    if (announces && !status->isKernelThread && !status->isZombie) {
        Announce(pid);
    }
}

void LaunchWatcher::LookForSession(bool announces) {
    const std::optional<LoginSession> active = ActiveSessionOfTheSeat().session;
    if (!active || !active->isPersons || !active->isGraphical) {
        session.clear();
        return;
    }
    if (active->id == session) return;
    if (!announces) {
        session = active->id;
        return;
    }
    const std::optional<ProcessStatus> leader = LeaderOf(*active);
    // Looked for again the next time.
    if (!leader) return;
    session = active->id;
    NameSessionShell(leader->pid, leader->startTime);
    Known& entry = known[leader->pid];
    entry.startTime = leader->startTime;
    entry.name = leader->name;
    entry.settled = __CFRunLoop::Clock::time_point();
    Announce(leader->pid);
}

void LaunchWatcher::Announce(pid_t pid) {
    const ProcessSerialNumber serialNumber{0, static_cast<UInt32>(pid)};
    OpaqueEventRef event{kEventClassApplication,  kEventAppLaunched, kEventParamProcessID,
                         typeProcessSerialNumber, &serialNumber,     sizeof serialNumber};
    SendToApplication(event);
}

}  // namespace frameworks
