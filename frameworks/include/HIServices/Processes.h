// The Process Manager: the processes of the machine.
//
// Backed by /proc (frameworks/HIServices, frameworks/Support/Proc). A serial number is {0, pid}.
// What is here: the name of a process.
// Different from the Mac: every process but the kernel's own threads counts. The numbers that stand
// for "the current process" and the like are not here, because they are those of processes.
// Ownership: Copy hands over one reference. Threads: any. Failure: procNotFound for a process that
// has gone, has ended, is a thread of the kernel, or never was; paramErr for a null pointer.
#pragma once

#include <CarbonCore/MacTypes.h>
#include <CoreFoundation/CFString.h>

extern "C" {

// The name in full: the kernel keeps the first 15 bytes, and the rest is found in the name of the
// program's file, or of the script that it runs. What is not UTF-8 shows as "?". The leader of the
// graphical session that became active since the application began to listen for launched
// applications is called "SystemUIServer". On failure the name is left as it was.
OSStatus CopyProcessName(const ProcessSerialNumber* psn, CFStringRef* name);

}  // extern "C"
