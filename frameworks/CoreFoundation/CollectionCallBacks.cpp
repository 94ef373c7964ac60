#include "CoreFoundation/CollectionCallBacks.h"

#include <cstdio>

#include "CoreFoundation/CallOut.h"
#include "CoreFoundation/String.h"

namespace frameworks {

const void* RetainReference(CFAllocatorRef, const void* value) {
    return CFRetain(value);
}

void ReleaseReference(CFAllocatorRef, const void* value) {
    CFRelease(value);
}

CFStringRef CopyDescriptionOfReference(const void* value) {
    return __CFString::Make(AnyObject(value, "CFShow").Describe()).Leak();
}

std::string DescribeValue(CFStringRef (*copyDescription)(const void*), const void* value) {
    if (copyDescription != nullptr) {
        const CFStringRef described = CallOutToTheClient(copyDescription, value);
        if (described == nullptr) {
            return "(null)";
        }
        std::string text(Checked<__CFString>(described, "CFShow").Text());
        CFRelease(described);
        return text;
    }
    char address[2 + 2 * sizeof(void*) + 1];
    std::snprintf(address, sizeof address, "%p", value);
    return address;
}

}  // namespace frameworks
