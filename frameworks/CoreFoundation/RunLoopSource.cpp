#include "CoreFoundation/RunLoopSource.h"

#include "CoreFoundation/RunLoop.h"

using frameworks::Ref;

__CFRunLoopSource::__CFRunLoopSource(int itsDescriptor,
                                     std::optional<frameworks::DescriptorIdentity> itsIdentity,
                                     std::uint32_t itsInterest)
    : Object(kType), descriptor(itsDescriptor), identity(itsIdentity), interest(itsInterest) {}

bool __CFRunLoopSource::HasItsDescriptor() const {
    return identity && frameworks::IdentityOf(descriptor) == identity;
}

void __CFRunLoopSource::SetInterest(std::uint32_t events) noexcept {
    const std::lock_guard<std::mutex> lock(mutex);
    if (interest == events) return;
    interest = events;
    if (loop != nullptr) {
        loop->Watch(slot, events);
    }
}

void __CFRunLoopSource::CallAfter(std::chrono::milliseconds delay) noexcept {
    const std::lock_guard<std::mutex> lock(mutex);
    if (loop != nullptr) {
        loop->SetDeadline(slot, delay);
    }
}

void __CFRunLoopSource::Invalidate() noexcept {
    // Let go of behind the lock, which lies in the source itself.
    Ref<__CFRunLoopSource> kept;
    const std::lock_guard<std::mutex> lock(mutex);
    valid = false;
    kept = LeaveLoop();
}

Ref<__CFRunLoopSource> __CFRunLoopSource::LeaveLoop() {
    __CFRunLoop* const left = std::exchange(loop, nullptr);
    return left == nullptr ? Ref<__CFRunLoopSource>() : left->Detach(*this);
}
