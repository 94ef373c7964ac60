#include "CoreFoundation/RunLoop.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <string>

#include "Support/PerThread.h"
#include "Support/StandardError.h"

using frameworks::Lifetime;
using frameworks::Misuse;
using frameworks::Ref;
using frameworks::UniqueDescriptor;

namespace {

constexpr int kEventsPerTurn = 64;
constexpr std::uint32_t kBellSlot = UINT32_MAX;
// An event for nobody is common when one callback invalidates another source. Many turns in a row
// mean a registration that nobody can take back any more.
constexpr int kTurnsForNobody = 16;

std::uint64_t Label(std::uint32_t slot, std::uint32_t generation) {
    return std::uint64_t{generation} << 32 | slot;
}

std::string WhatWentWrong() {
    return std::generic_category().message(errno);
}

bool IsMainThread() {
    return gettid() == getpid();
}

UniqueDescriptor NewSet() {
    return UniqueDescriptor(epoll_create1(EPOLL_CLOEXEC));
}

bool AddTo(int set, int descriptor, std::uint32_t events, std::uint64_t label) {
    epoll_event event{};
    event.events = events;
    event.data.u64 = label;
    return epoll_ctl(set, EPOLL_CTL_ADD, descriptor, &event) == 0;
}

}  // namespace

// The calling thread's loop, if it has one. Says goodbye to it when the thread ends.
struct __CFRunLoop::OfThread {
    ~OfThread() {
        if (loop != nullptr && loop != &Main()) {
            loop->Abandon();
            loop->Release();
            loop = nullptr;
        }
    }

    __CFRunLoop* loop = nullptr;

    static OfThread& Get() { return frameworks::PerThread<OfThread>(); }
};

__CFRunLoop& __CFRunLoop::Main() noexcept {
    static __CFRunLoop& main = *new __CFRunLoop(Lifetime::kImmortal);
    return main;
}

__CFRunLoop& __CFRunLoop::Current() noexcept {
    OfThread& ofThread = OfThread::Get();
    if (ofThread.loop == nullptr) {
        ofThread.loop = IsMainThread() ? &Main() : new __CFRunLoop(Lifetime::kCounted);
    }
    return *ofThread.loop;
}

bool __CFRunLoop::IsOfThisThread() const {
    const __CFRunLoop* const loop = OfThread::Get().loop;
    // The main thread may have asked for its loop by no other name than Main yet.
    return loop != nullptr ? loop == this : this == &Main() && IsMainThread();
}

__CFRunLoop::__CFRunLoop(Lifetime lifetime)
    : Object(kType, lifetime), set(NewSet()), bell(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!set.IsOpen() || !bell.IsOpen() ||
        !AddTo(set.Get(), bell.Get(), EPOLLIN, Label(kBellSlot, 0))) {
        Misuse("CFRunLoopGetCurrent", "no descriptors for a run loop: " + WhatWentWrong());
    }
}

__CFRunLoop::~__CFRunLoop() = default;

std::string __CFRunLoop::Describe() const {
    return DescribeHead() + "{" + std::to_string(sources.load()) + " sources}";
}

void __CFRunLoop::Run() noexcept {
    // Each run has its own stop, so that one inside a callback does not end the one around it.
    const bool stoppedOutside = stopped.exchange(false);
    const auto finished = [this] { return stopped.load() || sources.load() == 0; };
    RunWhileNot(finished);
    stopped.store(stoppedOutside);
}

void __CFRunLoop::RunUntil(const std::atomic<bool>& condition) noexcept {
    RunWhileNot([&condition] { return condition.load(); });
}

void __CFRunLoop::Stop() noexcept {
    stopped.store(true);
    Wake();
}

void __CFRunLoop::Wake() noexcept {
    // The loop looks for itself before it waits; only one that already does has to be told.
    if (IsOfThisThread()) return;
    const std::uint64_t one = 1;
    while (write(bell.Get(), &one, sizeof one) == -1 && errno == EINTR) {
    }
}

template <typename Finished>
void __CFRunLoop::RunWhileNot(const Finished& finished) {
    if (finished()) return;
    Tell(kCFRunLoopEntry);
    while (!finished()) {
        Turn(finished);
    }
}

template <typename Finished>
void __CFRunLoop::Turn(const Finished& finished) {
    Tell(kCFRunLoopBeforeWaiting);
    if (finished()) return;
    epoll_event events[kEventsPerTurn];
    const int count = epoll_wait(set.Get(), events, kEventsPerTurn, MillisecondsToWait());
    turns.fetch_add(1, std::memory_order_relaxed);
    if (count == -1) {
        if (errno != EINTR) {
            Misuse("CFRunLoopRun", "cannot wait: " + WhatWentWrong());
        }
        return;
    }
    bool metNobody = false;
    // What is left when the loop is to end is reported again when it is next run.
    for (int index = 0; index < count && !finished(); ++index) {
        metNobody |= !Serve(events[index]);
    }
    NoteTurn(metNobody);
    ServeDeadlines();
}

void __CFRunLoop::Tell(CFRunLoopActivity activity) {
    if ((observed.load(std::memory_order_relaxed) & activity) == 0) return;
    // The list may change while an observer is being told.
    for (std::size_t index = 0;;) {
        Ref<__CFRunLoopObserver> told;
        {
            const std::lock_guard<std::mutex> lock(mutex);
            if (index >= observers.size()) return;
            __CFRunLoopObserver* const observer = observers[index].Get();
            if ((observer->activities & activity) == 0) {
                ++index;
                continue;
            }
            if (observer->repeats) {
                told = Ref<__CFRunLoopObserver>::Retain(observer);
                ++index;
            } else {
                told = std::move(observers[index]);
                observers.erase(observers.begin() + static_cast<std::ptrdiff_t>(index));
            }
        }
        told->Tell(activity);
    }
}

int __CFRunLoop::MillisecondsToWait() {
    const std::lock_guard<std::mutex> lock(mutex);
    if (deadlines.empty()) return -1;
    Clock::time_point first = Clock::time_point::max();
    for (const Deadline& deadline : deadlines) {
        first = std::min(first, deadline.due);
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(first - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, INT_MAX));
}

Ref<__CFRunLoopSource> __CFRunLoop::SourceIn(std::uint32_t slot, std::uint32_t generation) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (slot >= slots.size() || slots[slot].generation != generation) {
        return Ref<__CFRunLoopSource>();
    }
    return Ref<__CFRunLoopSource>::Retain(slots[slot].source.Get());
}

bool __CFRunLoop::Serve(const epoll_event& event) {
    const auto slot = static_cast<std::uint32_t>(event.data.u64);
    if (slot == kBellSlot) {
        std::uint64_t rings = 0;
        while (read(bell.Get(), &rings, sizeof rings) == -1 && errno == EINTR) {
        }
        return true;
    }
    const Ref<__CFRunLoopSource> source =
        SourceIn(slot, static_cast<std::uint32_t>(event.data.u64 >> 32));
    if (!source) return false;
    source->Ready(event.events);
    return true;
}

void __CFRunLoop::ServeDeadlines() {
    Clock::time_point now;
    for (bool first = true;; first = false) {
        Ref<__CFRunLoopSource> source;
        {
            const std::lock_guard<std::mutex> lock(mutex);
            if (deadlines.empty()) return;
            // Read after the wait, and once: a deadline that is set anew meanwhile is for the next
            // turn.
            if (first) now = Clock::now();
            // A loop that is late finds several: the earliest comes first.
            const auto due = std::min_element(
                deadlines.begin(), deadlines.end(),
                [](const Deadline& one, const Deadline& other) { return one.due < other.due; });
            if (due->due > now) return;
            source = Ref<__CFRunLoopSource>::Retain(slots[due->slot].source.Get());
            deadlines.erase(due);
        }
        source->TimedOut();
    }
}

void __CFRunLoop::NoteTurn(bool metNobody) {
    turnsForNobody = metNobody ? turnsForNobody + 1 : 0;
    if (turnsForNobody == kTurnsForNobody) {
        turnsForNobody = 0;
        RenewSet();
    }
}

// A descriptor that was closed here but lives on as a copy elsewhere keeps its registration, which
// can be taken back only by that number. The set without it is a new one, put where the old one
// was.
void __CFRunLoop::RenewSet() {
    const std::lock_guard<std::mutex> lock(mutex);
    const UniqueDescriptor renewed = NewSet();
    if (!renewed.IsOpen() || !AddTo(renewed.Get(), bell.Get(), EPOLLIN, Label(kBellSlot, 0)) ||
        dup3(renewed.Get(), set.Get(), O_CLOEXEC) == -1) {
        // Tried again after as many turns.
        return;
    }
    for (std::uint32_t slot = 0; slot < slots.size(); ++slot) {
        slots[slot].watched = 0;
        if (slots[slot].source) {
            WatchLocked(slot);
        }
    }
}

void __CFRunLoop::Abandon() {
    std::vector<Ref<__CFRunLoopSource>> left;
    std::vector<Ref<__CFRunLoopObserver>> leftObservers;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        abandoned = true;
        for (const Slot& slot : slots) {
            if (slot.source) {
                left.push_back(Ref<__CFRunLoopSource>::Retain(slot.source.Get()));
            }
        }
        leftObservers.swap(observers);
    }
    for (const Ref<__CFRunLoopSource>& source : left) {
        Ref<__CFRunLoopSource> kept;
        const std::lock_guard<std::mutex> lock(source->mutex);
        // Unless somebody else has taken it off in the meantime.
        if (source->loop == this) {
            kept = source->LeaveLoop();
        }
    }
}

void __CFRunLoop::Add(__CFRunLoopSource& source) noexcept {
    const std::lock_guard<std::mutex> lock(source.mutex);
    if (!source.valid || source.loop == this) return;
    if (source.loop != nullptr) {
        Misuse("CFRunLoopAddSource", "the source is on another run loop");
    }
    Attach(source);
}

void __CFRunLoop::Attach(__CFRunLoopSource& source) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (abandoned) return;
    if (freeSlots.empty()) {
        // Room for every slot, so that giving one back cannot fail.
        freeSlots.reserve(slots.size() + 1);
        slots.emplace_back();
        freeSlots.push_back(static_cast<std::uint32_t>(slots.size() - 1));
    }
    source.slot = freeSlots.back();
    freeSlots.pop_back();
    source.loop = this;
    slots[source.slot].source = Ref<__CFRunLoopSource>::Retain(&source);
    slots[source.slot].wanted = source.interest;
    sources.fetch_add(1);
    WatchLocked(source.slot);
}

Ref<__CFRunLoopSource> __CFRunLoop::Detach(__CFRunLoopSource& source) {
    Ref<__CFRunLoopSource> kept;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        Slot& slot = slots[source.slot];
        slot.wanted = 0;
        WatchLocked(source.slot);
        slot.watched = 0;
        ++slot.generation;
        kept = std::move(slot.source);
        DropDeadlineLocked(source.slot);
        freeSlots.push_back(source.slot);
        // Behind the same lock: a loop that has run out of sources may be gone with its thread as
        // soon as that can pass Abandon.
        if (sources.fetch_sub(1) == 1) {
            Wake();
        }
    }
    return kept;
}

void __CFRunLoop::Watch(std::uint32_t slot, std::uint32_t events) {
    const std::lock_guard<std::mutex> lock(mutex);
    slots[slot].wanted = events;
    WatchLocked(slot);
}

void __CFRunLoop::WatchLocked(std::uint32_t number) {
    Slot& slot = slots[number];
    // A descriptor that hangs up is reported even to those who want to know nothing, for ever;
    // hence it leaves the set.
    if (slot.watched == slot.wanted || !slot.source->HasItsDescriptor()) return;
    const int operation = slot.wanted == 0    ? EPOLL_CTL_DEL
                          : slot.watched == 0 ? EPOLL_CTL_ADD
                                              : EPOLL_CTL_MOD;
    epoll_event event{};
    event.events = slot.wanted;
    event.data.u64 = Label(number, slot.generation);
    if (epoll_ctl(set.Get(), operation, slot.source->descriptor, &event) != 0) {
        frameworks::WriteToStandardError("CFRunLoop: descriptor " +
                                         std::to_string(slot.source->descriptor) +
                                         " cannot be watched: " + WhatWentWrong() + "\n");
        return;
    }
    slot.watched = slot.wanted;
}

void __CFRunLoop::SetDeadline(std::uint32_t slot, Clock::duration delay) {
    {
        const std::lock_guard<std::mutex> lock(mutex);
        DropDeadlineLocked(slot);
        deadlines.push_back(Deadline{Clock::now() + delay, slot});
    }
    Wake();
}

void __CFRunLoop::DropDeadlineLocked(std::uint32_t slot) {
    deadlines.erase(std::remove_if(deadlines.begin(), deadlines.end(),
                                   [slot](const Deadline& other) { return other.slot == slot; }),
                    deadlines.end());
}

void __CFRunLoop::Add(__CFRunLoopObserver& observer) noexcept {
    if (observer.taken.exchange(true)) return;
    const std::lock_guard<std::mutex> lock(mutex);
    if (abandoned) return;
    const auto behind = std::find_if(observers.begin(), observers.end(),
                                     [&observer](const Ref<__CFRunLoopObserver>& other) {
                                         return other->order > observer.order;
                                     });
    observers.insert(behind, Ref<__CFRunLoopObserver>::Retain(&observer));
    observed.fetch_or(observer.activities, std::memory_order_relaxed);
}
