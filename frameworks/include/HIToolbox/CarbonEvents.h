// The application: its event loop, and the events that it is sent.
//
// Backed by frameworks/HIToolbox: the application event loop is the main thread's run loop, and
// frameworks/HIToolbox/LaunchWatcher sends the one event that there is, kEventAppLaunched. As long
// as a handler for it is installed, and the main thread's run loop runs, the processes in /proc are
// looked through twice a second. A process that was not there when the first handler was installed
// is announced once, when it has started its program; so is one that changes into another program
// in its first seconds, as session scripts do. Threads of the kernel are not announced. Where
// logind runs, a person's graphical session that becomes the active one of seat0 is announced as
// well: the event names its leader, which CopyProcessName from then on calls "SystemUIServer".
//
// Different from the Mac: every process counts as an application.
// Ownership: nothing is handed over. Threads: RunApplicationEventLoop is for the main thread;
// QuitApplicationEventLoop may be called on any. Failure: none.
#pragma once

#include <HIToolbox/CarbonEventsCore.h>

extern "C" {

enum : OSType {
    kEventClassApplication = 0x6170706C  // 'appl'
};
enum : UInt32 { kEventAppLaunched = 5 };
enum : EventParamName {
    kEventParamProcessID = 0x70736E20  // 'psn ', a typeProcessSerialNumber
};

EventTargetRef GetApplicationEventTarget(void);

// Serves the main thread's run loop, with sources or without, until it is told to quit.
// CFRunLoopStop does not end it.
void RunApplicationEventLoop(void);
// Meant for the loop as it runs: one that comes before is forgotten.
void QuitApplicationEventLoop(void);

}  // extern "C"
