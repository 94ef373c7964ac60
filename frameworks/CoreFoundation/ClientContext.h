// What a client wants to have handed to its callback, and how it wants to have it kept.
//
// CFSocketContext, CFRunLoopObserverContext and their kin all begin alike; this is what they have
// in common. Owner: the object with the callback. The information is retained once, when the
// context is taken over, and released once.
//
// Threads: one at a time. Failure: none.
#pragma once

#include <CoreFoundation/CFString.h>

#include <string>

#include "CoreFoundation/CallOut.h"
#include "CoreFoundation/Object.h"
#include "CoreFoundation/String.h"

namespace frameworks {

class ClientContext {
  public:
    // CONTEXT may be null: there is nothing to hand over then.
    template <typename Context>
    explicit ClientContext(const Context* context) {
        if (context == nullptr) return;
        info = context->info;
        release = context->release;
        copyDescription = context->copyDescription;
        if (context->retain != nullptr && info != nullptr) {
            info = const_cast<void*>(CallOutToTheClient(context->retain, context->info));
        }
    }
    ClientContext(const ClientContext&) = delete;
    ClientContext& operator=(const ClientContext&) = delete;
    ~ClientContext() { Release(); }

    void* Info() const { return info; }

    // Only the first time.
    void Release() {
        void* const released = std::exchange(info, nullptr);
        if (release != nullptr && released != nullptr) {
            CallOutToTheClient(release, released);
        }
    }

    // Empty when the client does not describe it.
    std::string Describe() const {
        if (copyDescription == nullptr || info == nullptr) return std::string();
        const auto text = Ref<const __CFString>::Adopt(CallOutToTheClient(copyDescription, info));
        return text ? std::string(text->Text()) : std::string();
    }

  private:
    void* info = nullptr;
    void (*release)(const void*) = nullptr;
    CFStringRef (*copyDescription)(const void*) = nullptr;
};

}  // namespace frameworks
