// The name of the system's time zone.
//
// Backed by frameworks/CoreFoundation/TimeZone. The name comes from the first of these that tells
// one: the TZ environment variable ("Europe/Zurich", ":Europe/Zurich" or a path below a zoneinfo
// folder), the link /etc/localtime, the file /etc/timezone. Otherwise it is "GMT", as on the Mac.
// What is here: the system's zone and its name; nothing that calculates with time.
// Ownership: Copy hands over one reference; the name is lent for as long as the zone lives.
// Threads: any. Failure: none.
#pragma once

#include <CoreFoundation/CFBase.h>

extern "C" {

using CFTimeZoneRef = const struct __CFTimeZone*;

CFTypeID CFTimeZoneGetTypeID(void);

// Finds out once; a change of the system's zone is seen after CFTimeZoneResetSystem.
CFTimeZoneRef CFTimeZoneCopySystem(void);
void CFTimeZoneResetSystem(void);
CFStringRef CFTimeZoneGetName(CFTimeZoneRef tz);

}  // extern "C"
