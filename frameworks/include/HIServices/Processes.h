// The Process Manager: the processes of the machine.
//
// Backed by /proc (frameworks/HIServices, frameworks/Support/Proc). A serial number is {0, pid}.
// What is here: the walk through all processes, the name of one, whether it is in the background
// only, the identifier of its bundle, and its end.
// Different from the Mac: every process of the user's and of root's counts, of whatever session;
// the kernel's own threads have no name and no information and cannot be killed (Processes_test:
// KernelThread_IsInTheBackgroundOnly). The numbers that stand for "the current process" and the
// like are not here, because they are those of processes. Ownership: Copy hands over one reference.
// Threads: any. Failure: procNotFound for a process that has gone, has ended, is a thread of the
// kernel, or never was; paramErr for a null pointer.
#pragma once

#include <CarbonCore/Files.h>
#include <CarbonCore/MacTypes.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFString.h>

extern "C" {

enum { kNoProcess = 0 };

// From kNoProcess to the first process, and on by their numbers; procNotFound, with kNoProcess, at
// the end. A walk goes through those that were there when it began; any of them may have ended.
// Another user's are left out, because anybody can give a process any name; root sees all.
OSErr GetNextProcess(ProcessSerialNumber* psn);

// The name in full: the kernel keeps the first 15 bytes, and the rest is found in the name of the
// program's file, or of the script that it runs. What is not UTF-8 shows as "?". The leader of the
// graphical session that became active since the application began to listen for launched
// applications is called "SystemUIServer". On failure the name is left as it was.
OSStatus CopyProcessName(const ProcessSerialNumber* psn, CFStringRef* name);

enum {
    // In processMode.
    modeOnlyBackground = 0x00000400
};

#pragma pack(push, 2)
struct ProcessInfoRec {
    UInt32 processInfoLength;
    StringPtr processName;
    ProcessSerialNumber processNumber;
    UInt32 processType;
    OSType processSignature;
    UInt32 processMode;
    Ptr processLocation;
    UInt32 processSize;
    UInt32 processFreeMem;
    ProcessSerialNumber processLauncher;
    UInt32 processLaunchDate;
    UInt32 processActiveTime;
#if defined(__LP64__)
    FSRefPtr processAppRef;
#else
    struct FSSpec* processAppSpec;
#endif
};
#pragma pack(pop)

// Fills in the number and the mode, and leaves the other fields as they were: threads of the kernel
// are in the background only, and so are programs of a bundle whose Info.plist has
// LSBackgroundOnly. paramErr when the length is not that of the record, or a name or file is asked
// for.
OSErr GetProcessInformation(const ProcessSerialNumber* psn, ProcessInfoRec* info);

enum { kProcessDictionaryIncludeAllInformationMask = static_cast<int>(0xFFFFFFFF) };

// kCFBundleIdentifierKey, if the program lies in a bundle that has one: that of the innermost
// application around the program's file, or around the script that it runs. Immutable. Null when
// the process is not there, or anything but all is asked for.
CFDictionaryRef ProcessInformationCopyDictionary(const ProcessSerialNumber* psn,
                                                 UInt32 infoToReturn);

// Ends the process at once. permErr when that is not ours to do.
OSErr KillProcess(const ProcessSerialNumber* psn);

}  // extern "C"
