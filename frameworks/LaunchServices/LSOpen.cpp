#include <CarbonCore/MacErrors.h>
#include <LaunchServices/LSInfo.h>
#include <LaunchServices/LSOpen.h>
#include <sys/stat.h>

#include <new>
#include <optional>
#include <string>

#include "CarbonCore/FileReference.h"
#include "LaunchServices/Launch.h"

namespace {

constexpr LSLaunchFlags kOfferedFlags = kLSLaunchDefaults | kLSLaunchDontAddToRecents;

// Nothing when there is nothing (any more).
std::optional<std::string> PathOfExisting(const FSRef& ref) {
    std::optional<std::string> path = frameworks::PathOf(ref);
    struct stat status;
    if (path && stat(path->c_str(), &status) != 0) {
        path.reset();
    }
    return path;
}

OSStatus LaunchRef(const FSRef& application) {
    const std::optional<std::string> path = PathOfExisting(application);
    return path ? frameworks::LaunchApplication(*path) : static_cast<OSStatus>(fnfErr);
}

// An application among documents is launched; a program is not, because a document may be marked
// executable without anybody's meaning it.
OSStatus OpenItem(const FSRef& item) {
    const std::optional<std::string> path = PathOfExisting(item);
    if (!path) return fnfErr;
    return frameworks::IsApplication(*path) ? frameworks::LaunchApplication(*path)
                                            : frameworks::OpenDocument(*path);
}

OSStatus OpenAll(const FSRef* documents, ItemCount count) {
    for (ItemCount index = 0; index < count; ++index) {
        const OSStatus status = OpenItem(documents[index]);
        if (status != noErr) return status;
    }
    return noErr;
}

OSStatus OpenAnything(const FSRef& ref) {
    const std::optional<std::string> path = PathOfExisting(ref);
    if (!path) return fnfErr;
    return frameworks::IsLaunchable(*path) ? frameworks::LaunchApplication(*path)
                                           : frameworks::OpenDocument(*path);
}

}  // namespace

OSStatus LSOpenFromRefSpec(const LSLaunchFSRefSpec* inLaunchSpec, FSRef* outLaunchedRef) {
    if (inLaunchSpec == nullptr || outLaunchedRef != nullptr) return paramErr;
    const LSLaunchFSRefSpec& launch = *inLaunchSpec;
    const bool hasApplication = launch.appRef != nullptr;
    const bool hasDocuments = launch.numDocs != 0;
    if (hasApplication == hasDocuments || (hasDocuments && launch.itemRefs == nullptr) ||
        launch.passThruParams != nullptr || (launch.launchFlags & ~kOfferedFlags) != 0) {
        return paramErr;
    }
    try {
        return hasApplication ? LaunchRef(*launch.appRef)
                              : OpenAll(launch.itemRefs, launch.numDocs);
    } catch (const std::bad_alloc&) {
        return memFullErr;
    }
}

OSStatus LSOpenFSRef(const FSRef* inRef, FSRef* outLaunchedRef) {
    if (inRef == nullptr || outLaunchedRef != nullptr) return paramErr;
    try {
        return OpenAnything(*inRef);
    } catch (const std::bad_alloc&) {
        return memFullErr;
    }
}

OSStatus LSOpenApplication(const LSApplicationParameters* appParams, ProcessSerialNumber* outPSN) {
    if (appParams == nullptr || outPSN != nullptr || appParams->version != 0 ||
        (appParams->flags & ~kOfferedFlags) != 0 || appParams->application == nullptr ||
        appParams->environment != nullptr || appParams->argv != nullptr ||
        appParams->initialEvent != nullptr) {
        return paramErr;
    }
    try {
        return LaunchRef(*appParams->application);
    } catch (const std::bad_alloc&) {
        return memFullErr;
    }
}
