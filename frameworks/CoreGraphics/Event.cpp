#include "CoreGraphics/Event.h"

#include <CoreGraphics/CGEvent.h>

using frameworks::Checked;

CGPoint CGEventGetLocation(CGEventRef event) {
    const penEvents::Record& record = Checked<__CGEvent>(event, "CGEventGetLocation").record;
    return CGPoint{static_cast<CGFloat>(record.x), static_cast<CGFloat>(record.y)};
}

double CGEventGetDoubleValueField(CGEventRef event, CGEventField field) {
    const penEvents::Record& record =
        Checked<__CGEvent>(event, "CGEventGetDoubleValueField").record;
    return field == kCGTabletEventPointPressure ? record.pressure : 0;
}

std::int64_t CGEventGetIntegerValueField(CGEventRef event, CGEventField field) {
    const penEvents::Record& record =
        Checked<__CGEvent>(event, "CGEventGetIntegerValueField").record;
    switch (field) {
        case kCGTabletProximityEventPointerType:
            return record.pointerType;
        case kCGTabletProximityEventEnterProximity:
            return record.enterProximity;
        default:
            return 0;
    }
}
