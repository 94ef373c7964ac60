// Quartz events: what a tablet's driver posts, tapped by whoever may.
//
// Backed by frameworks/CoreGraphics/EventTap: the process that posts events listens on an abstract
// socket that carries its number in its name, and sends a packet per event to every tap
// (frameworks/CoreGraphics/PenEventRecord.h describes both).
// What is here: a tap that only listens, and an event's place, pressure, pointer and proximity.
// Different from the Mac: a tap that would change events is refused (CGEvent_test:
// TapCreate_ThatWouldFilter_IsNull). Events are those of pens: the five types of CGEventTypes.h. An
// event is gone when the callback returns, even if it was retained; what the callback returns is
// not looked at, and the proxy is null.
//
// Ownership: Create hands over one reference. Threads: the callback runs on the thread of the run
// loop that has the port's source. Failure: see per call. Numbers are handed on as they come, be
// they infinite or none at all.
#pragma once

#include <CarbonCore/MacTypes.h>
#include <CoreFoundation/CFMachPort.h>
#include <CoreGraphics/CGEventTypes.h>
#include <CoreGraphics/CGGeometry.h>

extern "C" {

// Null when the process is not there, posts no events, belongs to another user (root's may be
// tapped by everybody), or has more taps waiting than it takes in.
CFMachPortRef CGEventTapCreateForPSN(void* processSerialNumber, CGEventTapPlacement place,
                                     CGEventTapOptions options, CGEventMask eventsOfInterest,
                                     CGEventTapCallBack callback, void* userInfo);

CGPoint CGEventGetLocation(CGEventRef event);

// Both give 0 for a field that is not theirs: the pressure is the one double, the others are
// integers.
double CGEventGetDoubleValueField(CGEventRef event, CGEventField field);
std::int64_t CGEventGetIntegerValueField(CGEventRef event, CGEventField field);

}  // extern "C"
