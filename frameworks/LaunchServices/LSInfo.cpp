#include <CarbonCore/MacErrors.h>
#include <LaunchServices/LSInfo.h>

#include <new>
#include <optional>
#include <string>

#include "CarbonCore/FileReference.h"
#include "CoreFoundation/String.h"
#include "LaunchServices/ApplicationCatalog.h"

using frameworks::ApplicationCatalog;

namespace {

OSStatus Find(CFStringRef identifier, FSRef& application) {
    const std::string_view text =
        frameworks::Checked<__CFString>(identifier, "LSFindApplicationForInfo").Text();
    const std::optional<std::string> path = ApplicationCatalog::Get().Find(text);
    if (!path) return kLSApplicationNotFoundErr;
    FSRef found = {};
    // It may have gone since.
    if (FSPathMakeRef(reinterpret_cast<const UInt8*>(path->c_str()), &found, nullptr) != noErr) {
        return kLSApplicationNotFoundErr;
    }
    if (frameworks::IsInTrash(*path)) return kLSAppInTrashErr;
    application = found;
    return noErr;
}

OSStatus Register(const FSRef& ref) {
    const std::optional<std::string> path = frameworks::PathOf(ref);
    const frameworks::FileStamp stamp =
        path ? frameworks::FileStamp::Of(path->c_str()) : frameworks::FileStamp();
    // What has gone is forgotten when the next application is looked for.
    if (!stamp.Exists()) return fnfErr;
    if (!stamp.IsFolder()) return kLSNoRegistrationInfoErr;
    switch (ApplicationCatalog::Get().Register(*path)) {
        case ApplicationCatalog::Registration::kDone:
            return noErr;
        case ApplicationCatalog::Registration::kBroken:
            return kLSDataErr;
        case ApplicationCatalog::Registration::kNothingToRegister:
            break;
    }
    return kLSNoRegistrationInfoErr;
}

}  // namespace

OSStatus LSFindApplicationForInfo(OSType inCreator, CFStringRef inBundleID, CFStringRef inName,
                                  FSRef* outAppRef, CFURLRef* outAppURL) {
    if (inCreator != kLSUnknownCreator || inBundleID == nullptr || inName != nullptr ||
        outAppRef == nullptr || outAppURL != nullptr) {
        return paramErr;
    }
    try {
        return Find(inBundleID, *outAppRef);
    } catch (const std::bad_alloc&) {
        return memFullErr;
    }
}

OSStatus LSRegisterFSRef(const FSRef* inRef, Boolean) {
    if (inRef == nullptr) return paramErr;
    try {
        return Register(*inRef);
    } catch (const std::bad_alloc&) {
        return memFullErr;
    }
}
