#include <SystemConfiguration/SystemConfiguration.h>

#include <map>

#include "apps/ProcessOpenManager.h"
#include "core/Helpers.h"
#include "core/Owners.h"

uid_t Helpers::GetCurrentUserUID() {
    const auto store = CFOwner<SCDynamicStoreRef>::Adopt(SCDynamicStoreCreate(
        kCFAllocatorDefault, CFSTR("com.apple.dts.ConsoleUser"), nullptr, nullptr));
    if (!store) {
        return 0;
    }
    uid_t uid = 0;
    gid_t gid = 0;
    const auto name =
        CFOwner<CFStringRef>::Adopt(SCDynamicStoreCopyConsoleUser(store.Get(), &uid, &gid));
    // At the login window nobody has logged in yet.
    if (!name || CFStringCompare(name.Get(), CFSTR("loginwindow"), 0) == kCFCompareEqualTo) {
        return 0;
    }
    return uid;
}

bool Helpers::isUserAdminType() {
    static std::map<uid_t, bool>& adminsList = *new std::map<uid_t, bool>();
    const uid_t uid = GetCurrentUserUID();
    const auto known = adminsList.find(uid);
    if (known != adminsList.end()) {
        return known->second;
    }
    std::string output;
    const bool ran = ProcessOpenManager::getInstance()->open(
        ("id " + intToString(static_cast<int>(uid))).c_str(), "r+", &output, false);
    const bool admin = ran && output.find("80(admin)") != std::string::npos;
    adminsList[uid] = admin;
    return admin;
}
