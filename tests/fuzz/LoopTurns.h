// Lets the main thread's run loop serve what is ready, without waiting for anything.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <atomic>
#include <chrono>
#include <optional>

#include "CoreFoundation/RunLoop.h"
#include "CoreFoundation/RunLoopSource.h"

class LoopTurns final : public __CFRunLoopSource {
  public:
    // So many turns; whatever comes later stays for the next time.
    static void Make(int turns) {
        static LoopTurns& source = OnTheLoop();
        for (; turns > 0; --turns) {
            source.isOver.store(false);
            // A loop looks at its deadlines behind everything that is ready.
            source.CallAfter(std::chrono::milliseconds(0));
            __CFRunLoop::Main().RunUntil(source.isOver);
        }
    }

  private:
    LoopTurns() : __CFRunLoopSource(-1, std::nullopt, 0) {}

    static LoopTurns& OnTheLoop() {
        LoopTurns& source = *new LoopTurns();
        __CFRunLoop::Main().Add(source);
        return source;
    }
    void TimedOut() override { isOver.store(true); }

    std::atomic<bool> isOver{false};
};
