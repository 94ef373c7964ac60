#include "CoreFoundation/MachPort.h"

#include <linux/sockios.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>

#include <new>

using frameworks::CheckedMutable;
using frameworks::Ref;
using frameworks::UniqueDescriptor;

struct __CFMachPort::Source final : __CFRunLoopSource {
    Source(Ref<__CFMachPort> itsPort, int socket)
        : __CFRunLoopSource(socket, frameworks::IdentityOf(socket), EPOLLIN),
          port(std::move(itsPort)) {}

    ~Source() override {
        const std::lock_guard<std::mutex> lock(port->mutex);
        if (port->source == this) {
            port->source = nullptr;
        }
    }

    void Ready(std::uint32_t /*events*/) override { port->Serve(); }

    std::string Describe() const override { return DescribeHead() + "{" + port->Describe() + "}"; }

    const Ref<__CFMachPort> port;
};

__CFMachPort::__CFMachPort(UniqueDescriptor itsSocket)
    : Object(kType), channel(std::move(itsSocket)) {}

__CFMachPort::~__CFMachPort() = default;

void __CFMachPort::Invalidate() noexcept {
    // Both are let go of behind the lock.
    Ref<Source> itsSource;
    UniqueDescriptor closed;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (!valid) return;
        valid = false;
        if (source != nullptr && source->TryRetain()) {
            itsSource = Ref<Source>::Adopt(source);
        }
    }
    // Off the loop before the number may be given out again.
    if (itsSource) {
        itsSource->Invalidate();
    }
    const std::lock_guard<std::mutex> lock(mutex);
    if (readers == 0) {
        closed = std::move(channel);
    }
}

bool __CFMachPort::HasEnded(int socket) noexcept {
    pollfd state{socket, POLLIN | POLLRDHUP, 0};
    int left = 0;
    const bool hungUp = poll(&state, 1, 0) == 1 && (state.revents & ~POLLIN) != 0;
    return hungUp && (ioctl(socket, SIOCINQ, &left) != 0 || left == 0);
}

bool __CFMachPort::IsValid() noexcept {
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (!valid || !HasEnded(channel.Get())) return valid;
    }
    Invalidate();
    return false;
}

bool __CFMachPort::IsStillWanted() const noexcept {
    const std::lock_guard<std::mutex> lock(mutex);
    return valid;
}

Ref<__CFRunLoopSource> __CFMachPort::TheSource() {
    const std::lock_guard<std::mutex> lock(mutex);
    if (!valid) return {};
    if (source == nullptr || !source->TryRetain()) {
        source = new Source(Ref<__CFMachPort>::Retain(this), channel.Get());
    }
    return Ref<__CFRunLoopSource>::Adopt(source);
}

void __CFMachPort::Serve() {
    int read = -1;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (!valid) return;
        ++readers;
        read = channel.Get();
    }
    const More more = Receive(read);
    UniqueDescriptor closed;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (--readers == 0 && !valid) {
            closed = std::move(channel);
        }
    }
    if (more == More::kNever) {
        Invalidate();
    }
}

std::string __CFMachPort::Describe() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return DescribeHead() + (valid ? "{valid}" : "{invalid}");
}

CFTypeID CFMachPortGetTypeID() {
    return __CFMachPort::kType.id;
}

CFRunLoopSourceRef CFMachPortCreateRunLoopSource(CFAllocatorRef /*allocator*/, CFMachPortRef port,
                                                 CFIndex /*order*/) {
    __CFMachPort& object = CheckedMutable<__CFMachPort>(port, "CFMachPortCreateRunLoopSource");
    try {
        return object.TheSource().Leak();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void CFMachPortInvalidate(CFMachPortRef port) {
    CheckedMutable<__CFMachPort>(port, "CFMachPortInvalidate").Invalidate();
}

Boolean CFMachPortIsValid(CFMachPortRef port) {
    return CheckedMutable<__CFMachPort>(port, "CFMachPortIsValid").IsValid();
}
