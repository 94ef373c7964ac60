#include <AE/AEMach.h>
#include <AE/AppleEvents.h>
#include <CarbonCore/MacErrors.h>

#include <csignal>
#include <new>
#include <string_view>

#include "AE/Descriptor.h"
#include "CoreFoundation/String.h"
#include "HIServices/ProcessOf.h"
#include "Support/HeldProcess.h"
#include "Support/Proc.h"

using frameworks::Contents;
using frameworks::ProcessStatus;

namespace {

bool IsOfBundle(const ProcessStatus& process, std::string_view identifier) {
    const auto bundle = frameworks::BundleOf(process);
    if (!bundle) return false;
    const void* const value = bundle->Info().Find(kCFBundleIdentifierKey, "AESendMessage");
    return value != nullptr && CFGetTypeID(value) == CFStringGetTypeID() &&
           static_cast<CFStringRef>(value)->Text() == identifier;
}

OSStatus AskToQuit(std::string_view identifier) {
    bool asked = false;
    frameworks::ForEachProcess([&](pid_t pid, ino_t) {
        const std::optional<ProcessStatus> process = frameworks::StatusOf(pid);
        if (process && !process->isZombie && IsOfBundle(*process, identifier) &&
            frameworks::HeldProcess(*process).Signal(SIGTERM) == 0) {
            asked = true;
        }
    });
    if (!asked) return procNotFound;
    return noErr;
}

OSStatus Send(const AppleEvent& message) {
    const Contents* const contents = frameworks::ContentsOf(message);
    if (message.descriptorType != typeAppleEvent || contents == nullptr || !contents->event) {
        return errAENotAppleEvent;
    }
    const Contents::Event& event = *contents->event;
    if (event.eventClass != kCoreEventClass || event.eventID != kAEQuitApplication) {
        return errAEEventNotHandled;
    }
    if (event.targetType != typeApplicationBundleID) return errAEUnknownAddressType;
    return AskToQuit(event.target);
}

}  // namespace

OSStatus AESendMessage(const AppleEvent* event, AppleEvent* reply, AESendMode sendMode, long) {
    if (event == nullptr) return paramErr;
    if (reply != nullptr || sendMode != kAENoReply) return errAEUnknownSendMode;
    try {
        return Send(*event);
    } catch (const std::bad_alloc&) {
        return memFullErr;
    }
}
