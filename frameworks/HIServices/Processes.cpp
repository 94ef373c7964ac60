#include <CarbonCore/MacErrors.h>
#include <HIServices/Processes.h>

#include <algorithm>
#include <new>

#include "CoreFoundation/String.h"
#include "HIServices/ProcessOf.h"
#include "HIServices/SessionShell.h"
#include "Support/Proc.h"

using frameworks::ProcessStatus;
using frameworks::Ref;

namespace {

std::string NameOf(const ProcessStatus& process) {
    return frameworks::IsSessionShell(process.pid, process.startTime)
               ? std::string(frameworks::kSessionShellName)
               : FullNameOf(process);
}

// A name is bytes to the kernel, which may have cut it inside a character.
void MakeSevenBit(std::string& name) {
    std::replace_if(
        name.begin(), name.end(), [](char byte) { return (byte & 0x80) != 0; }, '?');
}

OSStatus CopyName(const ProcessSerialNumber& psn, CFStringRef& name) {
    const std::optional<ProcessStatus> process = frameworks::ProcessOf(psn);
    if (!process || process->isKernelThread) return procNotFound;
    std::string text = NameOf(*process);
    Ref<__CFString> made = __CFString::Make(text);
    if (!made) {
        MakeSevenBit(text);
        made = __CFString::Make(text);
    }
    if (!made) return memFullErr;
    name = made.Leak();
    return noErr;
}

}  // namespace

OSStatus CopyProcessName(const ProcessSerialNumber* psn, CFStringRef* name) {
    if (psn == nullptr || name == nullptr) return paramErr;
    try {
        return CopyName(*psn, *name);
    } catch (const std::bad_alloc&) {
        return memFullErr;
    }
}
