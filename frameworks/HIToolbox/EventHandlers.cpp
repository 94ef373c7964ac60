#include "HIToolbox/EventHandlers.h"

#include <CarbonCore/MacErrors.h>
#include <HIToolbox/CarbonEvents.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "CoreFoundation/CallOut.h"
#include "HIToolbox/LaunchWatcher.h"

struct OpaqueEventTargetRef {
    // The last one is the first to be told. Shared with the call that is under way, so that a
    // handler may remove itself.
    std::vector<std::shared_ptr<OpaqueEventHandlerRef>> handlers;
};

struct OpaqueEventHandlerRef {
    EventHandlerUPP function;
    void* userData;
    std::vector<EventTypeSpec> types;
    bool installed = true;

    bool Handles(OSType eventClass, UInt32 eventKind) const {
        return std::any_of(types.begin(), types.end(),
                           [eventClass, eventKind](const EventTypeSpec& type) {
                               return type.eventClass == eventClass && type.eventKind == eventKind;
                           });
    }
};

namespace {

OpaqueEventTargetRef& TheApplication() {
    static OpaqueEventTargetRef& application = *new OpaqueEventTargetRef();
    return application;
}

// Looking for new processes costs something, so it is done only while somebody wants to know.
void AdjustLaunchWatcher() {
    frameworks::LaunchWatcher::Keep(
        frameworks::IsHandled(kEventClassApplication, kEventAppLaunched));
}

}  // namespace

namespace frameworks {

void SendToApplication(OpaqueEventRef& event) {
    const auto handlers = TheApplication().handlers;
    for (auto handler = handlers.rbegin(); handler != handlers.rend(); ++handler) {
        if ((*handler)->installed && (*handler)->Handles(event.eventClass, event.eventKind)) {
            CallOutToTheClient((*handler)->function, nullptr, &event, (*handler)->userData);
        }
    }
}

bool IsHandled(OSType eventClass, UInt32 eventKind) {
    const auto& handlers = TheApplication().handlers;
    return std::any_of(handlers.begin(), handlers.end(),
                       [eventClass, eventKind](const auto& handler) {
                           return handler->Handles(eventClass, eventKind);
                       });
}

}  // namespace frameworks

EventTargetRef GetApplicationEventTarget() {
    return &TheApplication();
}

OSStatus InstallEventHandler(EventTargetRef inTarget, EventHandlerUPP inHandler,
                             ItemCount inNumTypes, const EventTypeSpec* inList, void* inUserData,
                             EventHandlerRef* outRef) {
    if (inTarget == nullptr || inHandler == nullptr || (inList == nullptr && inNumTypes != 0)) {
        return paramErr;
    }
    for (const auto& handler : inTarget->handlers) {
        if (handler->function == inHandler && handler->userData == inUserData) {
            return eventHandlerAlreadyInstalledErr;
        }
    }
    const auto made = std::make_shared<OpaqueEventHandlerRef>(OpaqueEventHandlerRef{
        inHandler, inUserData, std::vector<EventTypeSpec>(inList, inList + inNumTypes)});
    inTarget->handlers.push_back(made);
    if (outRef != nullptr) *outRef = made.get();
    AdjustLaunchWatcher();
    return noErr;
}

OSStatus RemoveEventHandler(EventHandlerRef inHandlerRef) {
    auto& handlers = TheApplication().handlers;
    const auto found =
        std::find_if(handlers.begin(), handlers.end(),
                     [inHandlerRef](const auto& handler) { return handler.get() == inHandlerRef; });
    if (found == handlers.end()) return paramErr;
    (*found)->installed = false;
    handlers.erase(found);
    AdjustLaunchWatcher();
    return noErr;
}
