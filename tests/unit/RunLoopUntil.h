// Running the current thread's loop until something is the case, for tests of what the loop serves.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <chrono>
#include <functional>
#include <optional>

#include "CoreFoundation/RunLoopSource.h"

// Stops its loop when the condition holds, or when it has waited for too long.
class RunLoopWatcher final : public __CFRunLoopSource {
  public:
    static constexpr std::chrono::milliseconds kStep{1};

    RunLoopWatcher(std::function<bool()> itsCondition, std::chrono::milliseconds patience)
        : __CFRunLoopSource(-1, std::nullopt, 0),
          condition(std::move(itsCondition)),
          deadline(std::chrono::steady_clock::now() + patience) {}

    // Asked once more: the loop may have been stopped for another reason.
    bool Held() const { return held || condition(); }

  private:
    void TimedOut() override {
        held = held || condition();
        if (held || std::chrono::steady_clock::now() > deadline) {
            CFRunLoopStop(CFRunLoopGetCurrent());
        }
        // Again also then: the loop that was stopped may be one inside the one that is meant.
        CallAfter(kStep);
    }

    const std::function<bool()> condition;
    const std::chrono::steady_clock::time_point deadline;
    bool held = false;
};

// Whether CONDITION came to hold while the loop ran.
inline bool RunLoopUntil(std::function<bool()> condition,
                         std::chrono::milliseconds patience = std::chrono::seconds(10)) {
    const auto watcher =
        frameworks::Ref<RunLoopWatcher>::Adopt(new RunLoopWatcher(std::move(condition), patience));
    CFRunLoopAddSource(CFRunLoopGetCurrent(), watcher.Get(), kCFRunLoopDefaultMode);
    watcher->CallAfter(std::chrono::milliseconds(0));
    CFRunLoopRun();
    watcher->Invalidate();
    return watcher->Held();
}

// Lets the loop serve what is ready now, and whatever that leads to, for so many turns.
inline void RunLoopForTurns(int turns) {
    RunLoopUntil([turns]() mutable { return turns-- == 0; });
}
