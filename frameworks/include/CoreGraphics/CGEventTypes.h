// The types and constants of Quartz events; CGEvent.h has the calls.
#pragma once

#include <cstdint>

extern "C" {

// Lent to a tap's callback, and gone when it returns: it cannot be kept.
using CGEventRef = struct __CGEvent*;

enum CGEventType : std::uint32_t {
    kCGEventLeftMouseDown = 1,
    kCGEventLeftMouseUp = 2,
    kCGEventLeftMouseDragged = 6,
    kCGEventTabletPointer = 23,
    kCGEventTabletProximity = 24
};

enum CGEventField : std::uint32_t {
    // 0 to 1.
    kCGTabletEventPointPressure = 19,
    // 1 is a pen, 2 a cursor, 3 an eraser.
    kCGTabletProximityEventPointerType = 37,
    // 0 when it leaves, another number when it comes.
    kCGTabletProximityEventEnterProximity = 38
};

enum CGEventTapPlacement : std::uint32_t { kCGHeadInsertEventTap = 0 };
enum CGEventTapOptions : std::uint32_t {
    kCGEventTapOptionDefault = 0,
    kCGEventTapOptionListenOnly = 1
};

using CGEventMask = std::uint64_t;
#define CGEventMaskBit(eventType) ((CGEventMask)1 << (eventType))

using CGEventTapProxy = struct __CGEventTapProxy*;

using CGEventTapCallBack = CGEventRef (*)(CGEventTapProxy proxy, CGEventType type, CGEventRef event,
                                          void* userInfo);

}  // extern "C"
