#include "system/TimeZoneWrapper.h"

#include <Carbon/Carbon.h>
#include <CoreFoundation/CoreFoundation.h>

#include "core/Helpers.h"

const char* GetLocalTimeZoneName() {
    static std::string& text = *new std::string();
    text.clear();
    CFTimeZoneResetSystem();
    const CFTimeZoneRef zone = CFTimeZoneCopySystem();
    if (zone == nullptr) {
        return text.c_str();
    }
    char* const name = Helpers::copy_CFStringRefToCString(CFTimeZoneGetName(zone));
    CFRelease(zone);
    if (name != nullptr) {
        text = name;
        DisposePtr(name);
    }
    return text.c_str();
}
