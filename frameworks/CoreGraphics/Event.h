// The object behind CGEventRef: a pen event as it came, lent to a tap's callback.
//
// Owner: the tap, on its stack. Threads: that of the callback. Failure: none.
#pragma once

#include <CoreGraphics/CGEventTypes.h>

#include "CoreFoundation/Object.h"
#include "CoreGraphics/PenEventRecord.h"

struct __CGEvent final : frameworks::Object {
    static constexpr const frameworks::Type& kType = frameworks::kEventType;

    // Retaining it changes nothing: it goes when the callback returns.
    explicit __CGEvent(const penEvents::Record& itsRecord)
        : Object(kType, frameworks::Lifetime::kImmortal), record(itsRecord) {}

    const penEvents::Record& record;
};
