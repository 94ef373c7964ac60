#include "apps/ProcessManager.h"
#include "core/Helpers.h"
#include "core/Owners.h"

namespace {

// Owns an Apple event descriptor, which may be empty.
struct Descriptor {
    AEDesc desc = {typeNull, nullptr};

    Descriptor() = default;
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { AEDisposeDesc(&desc); }
};

bool IsEqual(CFStringRef left, CFStringRef right) {
    return left != nullptr && CFStringCompare(left, right, 0) == kCFCompareEqualTo;
}

bool HasBundleIdentifier(const ProcessSerialNumber& psn, CFStringRef bundleIdentifier) {
    const auto information = CFOwner<CFDictionaryRef>::Adopt(ProcessInformationCopyDictionary(
        &psn, static_cast<UInt32>(kProcessDictionaryIncludeAllInformationMask)));
    return information && IsEqual(static_cast<CFStringRef>(CFDictionaryGetValue(
                                      information.Get(), kCFBundleIdentifierKey)),
                                  bundleIdentifier);
}

bool HasName(const ProcessSerialNumber& psn, CFStringRef processName) {
    CFStringRef name = nullptr;
    if (CopyProcessName(&psn, &name) != noErr) {
        return false;
    }
    const auto owner = CFOwner<CFStringRef>::Adopt(name);
    return IsEqual(name, processName);
}

bool IsForeground(const ProcessSerialNumber& psn) {
    ProcessInfoRec information = {};
    information.processInfoLength = sizeof information;
    return GetProcessInformation(&psn, &information) == noErr &&
           (information.processMode & modeOnlyBackground) == 0;
}

}  // namespace

bool ProcessManager::QuitApplication(const std::wstring& bundleIdentifier) {
    const std::string identifier = Helpers::wstringToUtf8(bundleIdentifier);
    Descriptor target;
    Descriptor event;
    if (AECreateDesc(typeApplicationBundleID, identifier.data(),
                     static_cast<Size>(identifier.size()), &target.desc) != noErr ||
        AECreateAppleEvent(kCoreEventClass, kAEQuitApplication, &target.desc, kAutoGenerateReturnID,
                           kAnyTransactionID, &event.desc) != noErr) {
        return false;
    }
    const OSStatus status = AESendMessage(&event.desc, nullptr, kAENoReply, kAEDefaultTimeout);
    if (status == noErr || status == procNotFound) {
        return true;
    }
    Helpers::logprintf("Unable to kill the process %d", static_cast<int>(status));
    Helpers::logprint(std::string(GetMacOSStatusErrorString(status)));
    return false;
}

bool ProcessManager::FindPSNForProcessID(ProcessSerialNumber* out, CFStringRef processName,
                                         CFStringRef bundleIdentifier) {
    if (processName == nullptr && bundleIdentifier == nullptr) {
        return false;
    }
    ProcessSerialNumber psn = {0, kNoProcess};
    while (GetNextProcess(&psn) == noErr) {
        const bool matches = bundleIdentifier != nullptr
                                 ? HasBundleIdentifier(psn, bundleIdentifier)
                                 : HasName(psn, processName);
        if (matches && IsForeground(psn)) {
            *out = psn;
            return true;
        }
    }
    return false;
}
