// Ports: what another process sends here, as a source of a run loop.
//
// Backed by frameworks/CoreFoundation/MachPort: a socket whose other end is that process.
// What is here: a port's run-loop source, its end, and whether it has come. Ports are made by the
// calls of what they carry, such as CGEventTapCreateForPSN.
//
// Ownership: Create hands over one reference; a source keeps its port. Threads: any; what is sent
// is handed over on the thread of the run loop. Failure: a port becomes invalid when the process at
// its other end is gone or closes it.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFRunLoop.h>

extern "C" {

using CFMachPortRef = struct __CFMachPort*;

CFTypeID CFMachPortGetTypeID(void);

// The same one every time. Null when the port is invalid.
CFRunLoopSourceRef CFMachPortCreateRunLoopSource(CFAllocatorRef allocator, CFMachPortRef port,
                                                 CFIndex order);

// Takes the port off its run loop and closes it. What has come meanwhile is dropped.
void CFMachPortInvalidate(CFMachPortRef port);
// Also false, without a run loop having noticed, when the other end is gone and has left nothing.
Boolean CFMachPortIsValid(CFMachPortRef port);

}  // extern "C"
