#include "system/TimeZoneWrapper.h"

#include <Carbon/Carbon.h>
#include <CoreFoundation/CoreFoundation.h>

#include "core/Helpers.h"
#include "core/Owners.h"

const char* GetLocalTimeZoneName() {
    static std::string& text = *new std::string();
    text.clear();
    CFTimeZoneResetSystem();
    const auto zone = CFOwner<CFTimeZoneRef>::Adopt(CFTimeZoneCopySystem());
    if (!zone) {
        return text.c_str();
    }
    char* const name = Helpers::copy_CFStringRefToCString(CFTimeZoneGetName(zone.Get()));
    if (name != nullptr) {
        text = name;
        DisposePtr(name);
    }
    return text.c_str();
}
