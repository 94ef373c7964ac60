// The object behind CFRunLoopSourceRef, and the base of everything that a run loop serves: a
// descriptor to watch, a deadline to keep, or both.
//
// A derived class says in Ready what to do about its descriptor and in TimedOut what to do when its
// time has come. Both are called on the loop's thread, without a lock held, and with a reference
// held, so that they may invalidate this source or any other, or let go of the last reference.
//
// Owner: the loop, from CFRunLoopAddSource until the source becomes invalid or the loop's thread
// ends. Threads: SetInterest, CallAfter and Invalidate may be called on any. The
// descriptor belongs to the derived class; should it be closed, and its number given out again, the
// new file is never touched (sockets are told apart; other kinds of files may share an inode).
// Failure: what the kernel refuses to watch is named on standard error.
#pragma once

#include <CoreFoundation/CFRunLoop.h>

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>

#include "CoreFoundation/Object.h"
#include "Support/DescriptorIdentity.h"

struct __CFRunLoopSource : frameworks::Object {
    static constexpr const frameworks::Type& kType = frameworks::kRunLoopSourceType;

    // What to watch the descriptor for: EPOLLIN, EPOLLOUT, both, or 0 for not at all. Hanging up
    // and errors are always reported together with these.
    void SetInterest(std::uint32_t events) noexcept;
    // TimedOut once, that much later; replaces an earlier request. Only while on a loop.
    void CallAfter(std::chrono::milliseconds delay) noexcept;
    // Off its loop, and never on one again.
    void Invalidate() noexcept;

  protected:
    // A DESCRIPTOR of -1 is none. IDENTITY is that of the file which the source is made for.
    __CFRunLoopSource(int itsDescriptor, std::optional<frameworks::DescriptorIdentity> itsIdentity,
                      std::uint32_t itsInterest);
    ~__CFRunLoopSource() override = default;

    virtual void Ready(std::uint32_t /*events*/) {}
    virtual void TimedOut() {}

  private:
    friend struct __CFRunLoop;

    // The loop gives up its reference, if it has one.
    frameworks::Ref<__CFRunLoopSource> LeaveLoop();
    // Whether the number still stands for the file that the source was made for.
    bool HasItsDescriptor() const;

    const int descriptor;
    const std::optional<frameworks::DescriptorIdentity> identity;

    std::mutex mutex;
    bool valid = true;
    __CFRunLoop* loop = nullptr;
    std::uint32_t interest;
    // On the loop.
    std::uint32_t slot = 0;
};
