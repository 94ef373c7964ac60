#include <SystemConfiguration/SystemConfiguration.h>

#include <map>

#include "apps/ProcessOpenManager.h"
#include "core/Helpers.h"

uid_t Helpers::GetCurrentUserUID() {
    const SCDynamicStoreRef store = SCDynamicStoreCreate(
        kCFAllocatorDefault, CFSTR("com.apple.dts.ConsoleUser"), nullptr, nullptr);
    if (store == nullptr) {
        return 0;
    }
    uid_t uid = 0;
    gid_t gid = 0;
    const CFStringRef name = SCDynamicStoreCopyConsoleUser(store, &uid, &gid);
    CFRelease(store);
    if (name == nullptr) {
        return 0;
    }
    const bool nobodyYet = CFStringCompare(name, CFSTR("loginwindow"), 0) == kCFCompareEqualTo;
    CFRelease(name);
    return nobodyYet ? 0 : uid;
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
