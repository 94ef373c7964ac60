#include <CarbonCore/MacErrors.h>
#include <HIServices/Processes.h>
#include <unistd.h>

#include <algorithm>
#include <new>
#include <optional>
#include <vector>

#include "HIServices/ProcessOf.h"
#include "Support/Proc.h"

namespace {

// Another user could give a process any name.
bool CanBeOfOurSession(pid_t pid) {
    if (geteuid() == 0) return true;
    const std::optional<uid_t> user = frameworks::UserOfProcess(pid);
    return user && (*user == 0 || *user == geteuid());
}

std::vector<pid_t> ReadList() {
    std::vector<pid_t> list;
    frameworks::ForEachProcess([&list](pid_t pid, ino_t) { list.push_back(pid); });
    std::sort(list.begin(), list.end());
    return list;
}

// As it was when this thread's last walk began: looking through /proc for every step of a walk
// would cost its length squared.
std::vector<pid_t>& TheList() {
    thread_local std::vector<pid_t> list;
    return list;
}

OSErr GoToNext(ProcessSerialNumber& psn) {
    const pid_t before = frameworks::PidOf(psn);
    std::vector<pid_t>& list = TheList();
    if (before == kNoProcess || list.empty()) {
        list = ReadList();
    }
    const auto next = std::find_if(std::upper_bound(list.begin(), list.end(), before), list.end(),
                                   CanBeOfOurSession);
    if (next != list.end()) {
        psn = {0, static_cast<UInt32>(*next)};
        return noErr;
    }
    // The next walk begins anew, wherever it begins.
    list.clear();
    psn = {0, kNoProcess};
    return procNotFound;
}

}  // namespace

OSErr GetNextProcess(ProcessSerialNumber* psn) {
    if (psn == nullptr) return paramErr;
    try {
        return GoToNext(*psn);
    } catch (const std::bad_alloc&) {
        return memFullErr;
    }
}
