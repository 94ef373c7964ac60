// The object behind CFRunLoopRef: an epoll set, an eventfd, and who is on them.
//
// A source takes a slot. The kernel is given the slot's number and generation with the descriptor,
// so that an event for a source that has gone, which may still lie in the batch that is being
// served or come from a descriptor that was closed behind the loop's back, finds nobody. Waiting is
// level-triggered: what a callback leaves unread is reported again.
//
// Owner: the thread. Sources and observers are kept by the loop (RunLoopSource.h says until when).
// Threads: everything but Run may be called on any thread. Lock order: a source's lock comes before
// its loop's, and no lock is held while anybody is called. Cost: an event allocates nothing; a turn
// is one wait, for up to 64 events. Failure: see CFRunLoop.h.
#pragma once

#include <CoreFoundation/CFRunLoop.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

#include "CoreFoundation/Object.h"
#include "CoreFoundation/RunLoopObserver.h"
#include "CoreFoundation/RunLoopSource.h"
#include "Support/UniqueDescriptor.h"

struct epoll_event;

struct __CFRunLoop final : frameworks::Object {
    static constexpr const frameworks::Type& kType = frameworks::kRunLoopType;
    using Clock = std::chrono::steady_clock;

    // Both lend.
    static __CFRunLoop& Current() noexcept;
    static __CFRunLoop& Main() noexcept;

    // As CFRunLoopRun and CFRunLoopStop.
    void Run() noexcept;
    void Stop() noexcept;
    // Runs until CONDITION is true, with sources or without. Whoever makes it true on another
    // thread calls Wake afterwards.
    void RunUntil(const std::atomic<bool>& condition) noexcept;
    void Wake() noexcept;

    void Add(__CFRunLoopSource& source) noexcept;
    void Add(__CFRunLoopObserver& observer) noexcept;

    // How often the loop has come back from waiting, ever.
    std::size_t Turns() const { return turns.load(std::memory_order_relaxed); }

    std::string Describe() const override;

  private:
    friend struct __CFRunLoopSource;
    struct OfThread;

    struct Slot {
        frameworks::Ref<__CFRunLoopSource> source;
        std::uint32_t generation = 1;
        // What the source wants its descriptor to be watched for, and what the kernel does.
        std::uint32_t wanted = 0;
        std::uint32_t watched = 0;
    };
    struct Deadline {
        Clock::time_point due;
        std::uint32_t slot;
    };

    explicit __CFRunLoop(frameworks::Lifetime lifetime);
    ~__CFRunLoop() override;

    template <typename Finished>
    void RunWhileNot(const Finished& finished);
    template <typename Finished>
    void Turn(const Finished& finished);
    void Tell(CFRunLoopActivity activity);
    int MillisecondsToWait();
    // False when the event is nobody's.
    bool Serve(const epoll_event& event);
    void ServeDeadlines();
    void NoteTurn(bool metNobody);
    void RenewSet();
    frameworks::Ref<__CFRunLoopSource> SourceIn(std::uint32_t slot, std::uint32_t generation);
    // The thread has ended: nobody will be served any more.
    void Abandon();

    // For sources, which hold their own lock.
    void Attach(__CFRunLoopSource& source);
    frameworks::Ref<__CFRunLoopSource> Detach(__CFRunLoopSource& source);
    void Watch(std::uint32_t slot, std::uint32_t events);
    void SetDeadline(std::uint32_t slot, Clock::duration delay);

    // With the lock held.
    void WatchLocked(std::uint32_t slot);
    void DropDeadlineLocked(std::uint32_t slot);
    bool IsOfThisThread() const;

    std::mutex mutex;
    frameworks::UniqueDescriptor set;
    frameworks::UniqueDescriptor bell;
    std::vector<Slot> slots;
    std::vector<std::uint32_t> freeSlots;
    std::vector<Deadline> deadlines;
    // In their order.
    std::vector<frameworks::Ref<__CFRunLoopObserver>> observers;
    bool abandoned = false;

    // What the observers ask to be told of, so that a turn that nobody observes costs no lock.
    std::atomic<CFOptionFlags> observed{0};
    std::atomic<std::size_t> sources{0};
    std::atomic<bool> stopped{false};
    std::atomic<std::size_t> turns{0};
    // Turns in a row in which an event was nobody's. Of the loop's thread.
    int turnsForNobody = 0;
};
