// Run loops: each thread's own, in which it waits for what its sources report.
//
// Backed by frameworks/CoreFoundation/RunLoop: one epoll set and one eventfd per loop, no helper
// thread. What is here: the loop of a thread, running and stopping it, sources and observers.
// Sources are made by the calls of what they watch, such as CFSocketCreateRunLoopSource.
// Different from the Mac: there is one mode, the default one, which is also the only common one;
// naming another mode stops the program (CFRunLoop_test: AddSource_InAnotherMode_Stops). A source
// is on one loop at a time; adding it to a second one stops the program
// (AddSource_ToASecondLoop_Stops). Sources are served in turn, whatever order they were given.
// Observers are told of entry and of the wait, and of nothing else.
//
// Ownership: the loop keeps its sources until they become invalid, and its observers until they
// have been told for the last time. A loop goes with its thread; whoever needs it longer retains
// it. Threads: CFRunLoopGetCurrent and CFRunLoopRun concern the calling thread; everything else may
// be called on any thread and wakes the loop where that matters. Callbacks run on the loop's
// thread. A stop is meant for the loop as it runs: one that comes before the loop was entered is
// forgotten, one that comes after it never is. Failure: a loop that the system gives no descriptors
// for stops the program; a source that it cannot watch is named on standard error.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFString.h>

extern "C" {

using CFRunLoopMode = CFStringRef;
using CFRunLoopRef = struct __CFRunLoop*;
using CFRunLoopSourceRef = struct __CFRunLoopSource*;
using CFRunLoopObserverRef = struct __CFRunLoopObserver*;

using CFRunLoopActivity = CFOptionFlags;
enum : CFOptionFlags {
    kCFRunLoopEntry = 1UL << 0,
    // Before the loop waits; it may find that something has happened already.
    kCFRunLoopBeforeWaiting = 1UL << 5
};

CF_EXPORT const CFRunLoopMode kCFRunLoopDefaultMode;
CF_EXPORT const CFRunLoopMode kCFRunLoopCommonModes;

// Lent. The first call on a thread makes its loop.
CFRunLoopRef CFRunLoopGetCurrent(void);

// Serves the current thread's sources until the loop is stopped, or has no source left. Without any
// source it returns at once and tells no observer.
void CFRunLoopRun(void);
// Makes CFRunLoopRun return as soon as the callback that is running has done so.
void CFRunLoopStop(CFRunLoopRef rl);

void CFRunLoopAddSource(CFRunLoopRef rl, CFRunLoopSourceRef source, CFRunLoopMode mode);
// An observer is on one loop in its life; adding it again does nothing.
void CFRunLoopAddObserver(CFRunLoopRef rl, CFRunLoopObserverRef observer, CFRunLoopMode mode);

struct CFRunLoopObserverContext {
    CFIndex version;
    void* info;
    const void* (*retain)(const void* info);
    void (*release)(const void* info);
    CFStringRef (*copyDescription)(const void* info);
};
using CFRunLoopObserverCallBack = void (*)(CFRunLoopObserverRef observer,
                                           CFRunLoopActivity activity, void* info);

// Observers with a lower order are told first. One that does not repeat is told once and then gone.
CFRunLoopObserverRef CFRunLoopObserverCreate(CFAllocatorRef allocator, CFOptionFlags activities,
                                             Boolean repeats, CFIndex order,
                                             CFRunLoopObserverCallBack callout,
                                             CFRunLoopObserverContext* context);

}  // extern "C"
