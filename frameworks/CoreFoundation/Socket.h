// The object behind CFSocketRef: a native socket, what of it the client wants to hear, and whom to
// tell.
//
// A wrapper knows which file it was made for, not only which number. One table for the process
// leads from the number to its wrapper, so that a number which was closed behind the wrapper's back
// and given out again, on whichever thread, finds the stale wrapper and ends it.
//
// Owner: its source, which the run loop keeps, and whoever holds a reference; the table does not.
// Threads: any; Serve runs on the loop's thread. Lock order: table, then socket, then source. No
// lock is held while the client is called or an object may go. Failure: see CFSocket.h.
#pragma once

#include <CoreFoundation/CFSocket.h>

#include <mutex>

#include "CoreFoundation/ClientContext.h"
#include "CoreFoundation/Object.h"
#include "CoreFoundation/RunLoopSource.h"
#include "Support/DescriptorIdentity.h"

struct __CFSocket final : frameworks::Object {
    static constexpr const frameworks::Type& kType = frameworks::kSocketType;

    // The wrapper of NATIVE, an old one or a new one. Nothing when NATIVE is not open.
    static frameworks::Ref<__CFSocket> Of(CFSocketNativeHandle native, CFOptionFlags callBackTypes,
                                          CFSocketCallBack callOut, const CFSocketContext* context);

    void Invalidate() noexcept;
    // Nothing when the socket is invalid.
    frameworks::Ref<__CFRunLoopSource> TheSource();

    CFOptionFlags Flags();
    void SetFlags(CFOptionFlags itsFlags);
    void Enable(CFOptionFlags callBackTypes) noexcept;
    void Disable(CFOptionFlags callBackTypes) noexcept;

    std::string Describe() const override;

  private:
    struct Source;
    struct Table;

    __CFSocket(CFSocketNativeHandle itsNative, frameworks::DescriptorIdentity itsIdentity,
               CFOptionFlags itsTypes, CFSocketCallBack itsCallOut,
               const CFSocketContext* itsContext);
    ~__CFSocket() override;

    void Serve(Source& itsSource, std::uint32_t events);
    void Accept(Source& itsSource);
    bool HandOver(CFSocketNativeHandle accepted, const void* peer, std::size_t peerLength);
    // False, and nobody is called, when the client does not want to hear it (any more).
    bool Tell(CFSocketCallBackType what, CFDataRef address, const void* data);
    bool Wants(CFSocketCallBackType what);
    void LeaveContext();
    void Close();

    // With the lock held.
    std::uint32_t InterestLocked() const;
    // Gives back what must be let go of behind the lock.
    frameworks::Ref<Source> TellSourceLocked();

    const CFSocketNativeHandle native;
    const frameworks::DescriptorIdentity identity;
    const CFOptionFlags types;
    const CFSocketCallBack callOut;

    mutable std::mutex mutex;
    frameworks::ClientContext context;
    CFOptionFlags flags;
    // Which callbacks may come.
    CFOptionFlags enabled;
    bool valid = true;
    bool hadSource = false;
    // Those who are using the context: callbacks that are running, one within the other where a
    // callback runs its run loop. While there are any it is not released.
    int users = 0;
    // Not owned: the source owns the socket.
    Source* source = nullptr;
};
