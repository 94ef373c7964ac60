#include <HIToolbox/CarbonEvents.h>

#include <atomic>

#include "CoreFoundation/Object.h"
#include "CoreFoundation/RunLoop.h"

namespace {

std::atomic<bool> quits{false};

}  // namespace

void RunApplicationEventLoop() {
    __CFRunLoop& loop = __CFRunLoop::Main();
    if (&__CFRunLoop::Current() != &loop) {
        frameworks::Misuse("RunApplicationEventLoop", "this is not the main thread");
    }
    quits.store(false);
    loop.RunUntil(quits);
    // A loop that runs inside another one's callback ends alone.
    quits.store(false);
}

void QuitApplicationEventLoop() {
    quits.store(true);
    __CFRunLoop::Main().Wake();
}
