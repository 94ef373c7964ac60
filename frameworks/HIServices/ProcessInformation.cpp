#include <CarbonCore/MacErrors.h>
#include <HIServices/Processes.h>

#include <csignal>
#include <new>

#include "CoreFoundation/Bundle.h"
#include "CoreFoundation/Dictionary.h"
#include "CoreFoundation/Number.h"
#include "CoreFoundation/String.h"
#include "HIServices/ProcessOf.h"
#include "Support/ErrnoStatus.h"
#include "Support/HeldProcess.h"

using frameworks::ProcessStatus;
using frameworks::Ref;

namespace {

// Info.plist files say it with a truth value, a number or a text.
bool IsYes(CFTypeRef value) {
    const CFTypeID type = CFGetTypeID(value);
    if (type == CFBooleanGetTypeID()) return CFBooleanGetValue(static_cast<CFBooleanRef>(value));
    if (type == CFNumberGetTypeID()) {
        int number = 0;
        CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberIntType, &number);
        return number != 0;
    }
    if (type != CFStringGetTypeID()) return false;
    const std::string_view text = static_cast<CFStringRef>(value)->Text();
    return text == "1" || text == "YES" || text == "yes" || text == "true";
}

bool IsBackgroundOnly(const ProcessStatus& process) {
    if (process.isKernelThread) return true;
    const Ref<__CFBundle> bundle = frameworks::BundleOf(process);
    const void* const value =
        bundle ? bundle->Info().Find(CFSTR("LSBackgroundOnly"), "GetProcessInformation") : nullptr;
    return value != nullptr && IsYes(value);
}

OSErr FillIn(const ProcessSerialNumber& psn, ProcessInfoRec& info) {
    const std::optional<ProcessStatus> process = frameworks::ProcessOf(psn);
    if (!process) return procNotFound;
    info.processNumber = psn;
    info.processMode = IsBackgroundOnly(*process) ? UInt32{modeOnlyBackground} : 0;
    return noErr;
}

Ref<const __CFDictionary> InformationOf(const ProcessStatus& process) {
    const char* const call = "ProcessInformationCopyDictionary";
    auto information = Ref<__CFDictionary>::Adopt(
        new __CFDictionary(&kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    const Ref<__CFBundle> bundle = frameworks::BundleOf(process);
    const void* const identifier =
        bundle ? bundle->Info().Find(kCFBundleIdentifierKey, call) : nullptr;
    if (identifier != nullptr && CFGetTypeID(identifier) == CFStringGetTypeID()) {
        information->Set(kCFBundleIdentifierKey, identifier, call);
    }
    information->Freeze();
    return Ref<const __CFDictionary>::Adopt(information.Leak());
}

// By a field that has another name and type in 32-bit programs.
bool AsksForFile(const ProcessInfoRec& info) {
#if defined(__LP64__)
    return info.processAppRef != nullptr;
#else
    return info.processAppSpec != nullptr;
#endif
}

}  // namespace

OSErr GetProcessInformation(const ProcessSerialNumber* psn, ProcessInfoRec* info) {
    if (psn == nullptr || info == nullptr || info->processInfoLength != sizeof *info ||
        info->processName != nullptr || AsksForFile(*info)) {
        return paramErr;
    }
    try {
        return FillIn(*psn, *info);
    } catch (const std::bad_alloc&) {
        return memFullErr;
    }
}

CFDictionaryRef ProcessInformationCopyDictionary(const ProcessSerialNumber* psn,
                                                 UInt32 infoToReturn) {
    if (psn == nullptr ||
        infoToReturn != static_cast<UInt32>(kProcessDictionaryIncludeAllInformationMask)) {
        return nullptr;
    }
    try {
        const std::optional<ProcessStatus> process = frameworks::ProcessOf(*psn);
        if (!process || process->isKernelThread) return nullptr;
        return InformationOf(*process).Leak();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

OSErr KillProcess(const ProcessSerialNumber* psn) {
    if (psn == nullptr) return paramErr;
    try {
        const std::optional<ProcessStatus> process = frameworks::ProcessOf(*psn);
        if (!process || process->isKernelThread) return procNotFound;
        const int error = frameworks::HeldProcess(*process).Signal(SIGKILL);
        return static_cast<OSErr>(frameworks::StatusOfErrno(error));
    } catch (const std::bad_alloc&) {
        return memFullErr;
    }
}
