#include <CoreFoundation/CFRunLoop.h>

#include "CoreFoundation/RunLoop.h"
#include "CoreFoundation/String.h"

using frameworks::CheckedMutable;

namespace {

frameworks::Immortal<__CFString> defaultMode("kCFRunLoopDefaultMode");
frameworks::Immortal<__CFString> commonModes("kCFRunLoopCommonModes");

void RequireTheMode(CFRunLoopMode mode, const char* call) {
    const __CFString& named = frameworks::Checked<__CFString>(mode, call);
    if (!named.Equals(*defaultMode.Get()) && !named.Equals(*commonModes.Get())) {
        frameworks::Misuse(call, "there is no run loop mode but the default one");
    }
}

}  // namespace

const CFRunLoopMode kCFRunLoopDefaultMode = defaultMode.Get();
const CFRunLoopMode kCFRunLoopCommonModes = commonModes.Get();

CFRunLoopRef CFRunLoopGetCurrent() {
    return &__CFRunLoop::Current();
}

void CFRunLoopRun() {
    __CFRunLoop::Current().Run();
}

void CFRunLoopStop(CFRunLoopRef rl) {
    CheckedMutable<__CFRunLoop>(rl, "CFRunLoopStop").Stop();
}

void CFRunLoopAddSource(CFRunLoopRef rl, CFRunLoopSourceRef source, CFRunLoopMode mode) {
    const char* const call = "CFRunLoopAddSource";
    RequireTheMode(mode, call);
    CheckedMutable<__CFRunLoop>(rl, call).Add(CheckedMutable<__CFRunLoopSource>(source, call));
}

void CFRunLoopAddObserver(CFRunLoopRef rl, CFRunLoopObserverRef observer, CFRunLoopMode mode) {
    const char* const call = "CFRunLoopAddObserver";
    RequireTheMode(mode, call);
    CheckedMutable<__CFRunLoop>(rl, call).Add(CheckedMutable<__CFRunLoopObserver>(observer, call));
}

CFRunLoopObserverRef CFRunLoopObserverCreate(CFAllocatorRef /*allocator*/, CFOptionFlags activities,
                                             Boolean repeats, CFIndex order,
                                             CFRunLoopObserverCallBack callout,
                                             CFRunLoopObserverContext* context) {
    if (callout == nullptr) {
        frameworks::Misuse("CFRunLoopObserverCreate", "there is nothing to call");
    }
    // Null when memory runs out.
    return new (std::nothrow)
        __CFRunLoopObserver(activities, repeats != 0, order, callout, context);
}

std::string __CFRunLoopObserver::Describe() const {
    const std::string what = context.Describe();
    return DescribeHead() + (what.empty() ? std::string() : "{" + what + "}");
}
