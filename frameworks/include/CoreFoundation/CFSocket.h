// Sockets that a run loop watches: somebody connected, there is something to read, there is room to
// write.
//
// Backed by frameworks/CoreFoundation/Socket, a descriptor on the run loop's epoll set.
// What is here: wrapping a socket that exists, for accepting, reading and writing.
// Different from the Mac: there are no data and connect callbacks; asking for anything but reading
// or accepting, with or without writing, gives null (CFSocket_test:
// Create_ForDataOrConnect_GivesNull). A descriptor that was closed behind the wrapper's back, and
// whose number stands for another socket by now, is neither watched nor closed any more, and
// wrapping the new socket replaces the old wrapper (CFSocket_test:
// Create_ForAReusedNumber_ReplacesTheStaleWrapper). When a run loop goes with its thread, so do the
// sockets that only it kept, without closing their descriptors
// (ThreadEnds_WithSocketsOnItsLoop_ReleasesThemAndClosesNothing).
//
// Ownership: Create hands over one reference; a source keeps its socket, and the run loop keeps the
// source until the socket is invalidated. The context's info is retained when the socket is made
// and released once, when it is invalidated: behind the callback that is running, if one is.
// Threads: everything may be called on any thread; callbacks run on the thread of the run loop.
// Failure: null from Create for a descriptor that is not open, and when memory runs out. A listener
// that the system gives no descriptors for pauses for a tenth of a second and tries again, for as
// long as it takes.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFRunLoop.h>

extern "C" {

using CFSocketRef = struct __CFSocket*;
using CFSocketNativeHandle = int;

using CFSocketCallBackType = CFOptionFlags;
enum : CFOptionFlags {
    // There is something to read, or the end, or an error to fetch by reading.
    kCFSocketReadCallBack = 1,
    // Data points to the native handle of the connection, which is the callback's to close, is
    // non-blocking, as on the Mac, and close-on-exec. Address is its peer's, lent.
    kCFSocketAcceptCallBack = 2,
    // There is room to write, or an error to fetch by writing.
    kCFSocketWriteCallBack = 8
};

// Without its flag, a callback comes once per enabling. The flags of reading and accepting are set
// from the start, where the socket has that callback, and so is the one for closing.
enum : CFOptionFlags {
    kCFSocketAutomaticallyReenableReadCallBack = 1,
    kCFSocketAutomaticallyReenableAcceptCallBack = 2,
    kCFSocketAutomaticallyReenableWriteCallBack = 8,
    kCFSocketCloseOnInvalidate = 128
};

using CFSocketCallBack = void (*)(CFSocketRef s, CFSocketCallBackType type, CFDataRef address,
                                  const void* data, void* info);

struct CFSocketContext {
    CFIndex version;
    void* info;
    const void* (*retain)(const void* info);
    void (*release)(const void* info);
    CFStringRef (*copyDescription)(const void* info);
};

// For a socket that has a wrapper already, that one, retained, as it is. A listener becomes
// non-blocking.
CFSocketRef CFSocketCreateWithNative(CFAllocatorRef allocator, CFSocketNativeHandle sock,
                                     CFOptionFlags callBackTypes, CFSocketCallBack callout,
                                     const CFSocketContext* context);
// No callback comes from now on; those that are about to come on another thread may still.
void CFSocketInvalidate(CFSocketRef s);
// The socket's one source; null for a socket that has been invalidated.
CFRunLoopSourceRef CFSocketCreateRunLoopSource(CFAllocatorRef allocator, CFSocketRef s,
                                               CFIndex order);
CFOptionFlags CFSocketGetSocketFlags(CFSocketRef s);
void CFSocketSetSocketFlags(CFSocketRef s, CFOptionFlags flags);
// Both hold whether the socket is on a run loop by then or not.
void CFSocketDisableCallBacks(CFSocketRef s, CFOptionFlags callBackTypes);
void CFSocketEnableCallBacks(CFSocketRef s, CFOptionFlags callBackTypes);

}  // extern "C"
