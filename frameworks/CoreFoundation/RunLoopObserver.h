// The object behind CFRunLoopObserverRef: a client's function that is told what its loop is about
// to do.
//
// Owner: the loop it is on. Threads: told on the loop's thread. Failure: none.
#pragma once

#include <CoreFoundation/CFRunLoop.h>

#include <atomic>

#include "CoreFoundation/ClientContext.h"
#include "CoreFoundation/Object.h"

struct __CFRunLoopObserver final : frameworks::Object {
    static constexpr const frameworks::Type& kType = frameworks::kRunLoopObserverType;

    __CFRunLoopObserver(CFOptionFlags itsActivities, bool doesRepeat, CFIndex itsOrder,
                        CFRunLoopObserverCallBack itsCallOut,
                        const CFRunLoopObserverContext* itsContext)
        : Object(kType),
          activities(itsActivities),
          repeats(doesRepeat),
          order(itsOrder),
          callOut(itsCallOut),
          context(itsContext) {}

    void Tell(CFRunLoopActivity activity) {
        frameworks::CallOutToTheClient(callOut, this, activity, context.Info());
    }

    std::string Describe() const override;

    const CFOptionFlags activities;
    const bool repeats;
    const CFIndex order;
    // An observer is on one loop in its life.
    std::atomic<bool> taken{false};

  private:
    const CFRunLoopObserverCallBack callOut;
    frameworks::ClientContext context;
};
