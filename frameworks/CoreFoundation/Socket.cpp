#include "CoreFoundation/Socket.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <vector>

#include "CoreFoundation/Data.h"

using frameworks::CheckedMutable;
using frameworks::DescriptorIdentity;
using frameworks::IdentityOf;
using frameworks::Ref;

namespace {

constexpr std::chrono::milliseconds kPause{100};
constexpr CFOptionFlags kReadOrAccept = kCFSocketReadCallBack | kCFSocketAcceptCallBack;

// Whether the error concerns one connection that has gone, or nothing at all, rather than the
// listener.
bool IsPassing(int error) {
    switch (error) {
        case EINTR:
        case ECONNABORTED:
        // What Linux hands on from a connection that failed before it was fetched.
        case EPROTO:
        case ENETDOWN:
        case ENOPROTOOPT:
        case EHOSTDOWN:
        case ENONET:
        case EHOSTUNREACH:
        case ENETUNREACH:
        case EOPNOTSUPP:
        case EPERM:
            return true;
        default:
            return false;
    }
}

void MakeNonBlocking(int descriptor) {
    const int before = fcntl(descriptor, F_GETFL);
    if (before != -1 && (before & O_NONBLOCK) == 0) {
        fcntl(descriptor, F_SETFL, before | O_NONBLOCK);
    }
}

}  // namespace

struct __CFSocket::Source final : __CFRunLoopSource {
    Source(Ref<__CFSocket> itsSocket, std::uint32_t events)
        : __CFRunLoopSource(itsSocket->native, itsSocket->identity, events),
          socket(std::move(itsSocket)) {}

    ~Source() override {
        const std::lock_guard<std::mutex> lock(socket->mutex);
        if (socket->source == this) {
            socket->source = nullptr;
        }
    }

    void Ready(std::uint32_t events) override { socket->Serve(*this, events); }
    // The pause of a listener is over.
    void TimedOut() override { socket->Enable(0); }

    std::string Describe() const override {
        return DescribeHead() + "{" + socket->Describe() + "}";
    }

    const Ref<__CFSocket> socket;
};

// The wrapper of each number. Never destroyed, because threads may still run while the process
// ends.
struct __CFSocket::Table {
    std::mutex mutex;
    std::vector<__CFSocket*> wrappers;

    static Table& Get() {
        static Table& table = *new Table();
        return table;
    }

    // Puts WRAPPER in, unless there is one already: then that one comes back.
    Ref<__CFSocket> FindOrPut(std::size_t number, __CFSocket* wrapper) {
        const std::lock_guard<std::mutex> lock(mutex);
        if (wrappers.size() <= number) {
            wrappers.resize(number + 1);
        }
        __CFSocket*& entry = wrappers[number];
        // One that is just being destroyed does not count.
        if (entry != nullptr && entry->TryRetain()) {
            return Ref<__CFSocket>::Adopt(entry);
        }
        if (wrapper != nullptr) {
            entry = wrapper;
        }
        return Ref<__CFSocket>();
    }

    void TakeOut(std::size_t number, const __CFSocket* wrapper) {
        const std::lock_guard<std::mutex> lock(mutex);
        if (number < wrappers.size() && wrappers[number] == wrapper) {
            wrappers[number] = nullptr;
        }
    }
};

Ref<__CFSocket> __CFSocket::Of(CFSocketNativeHandle native, CFOptionFlags callBackTypes,
                               CFSocketCallBack callOut, const CFSocketContext* context) {
    const std::optional<DescriptorIdentity> identity = IdentityOf(native);
    if (!identity) {
        return Ref<__CFSocket>();
    }
    Table& table = Table::Get();
    const auto number = static_cast<std::size_t>(native);
    Ref<__CFSocket> made;
    for (;;) {
        Ref<__CFSocket> known = table.FindOrPut(number, made.Get());
        if (known) {
            if (known->identity == *identity) {
                // Another thread was faster: what was made here is not the descriptor's owner.
                if (made) made->flags = 0;
                return known;
            }
            known->Invalidate();
        } else if (made) {
            return made;
        } else {
            made = Ref<__CFSocket>::Adopt(
                new __CFSocket(native, *identity, callBackTypes, callOut, context));
        }
    }
}

__CFSocket::__CFSocket(CFSocketNativeHandle itsNative, DescriptorIdentity itsIdentity,
                       CFOptionFlags itsTypes, CFSocketCallBack itsCallOut,
                       const CFSocketContext* itsContext)
    : Object(kType),
      native(itsNative),
      identity(itsIdentity),
      types(itsTypes),
      callOut(itsCallOut),
      context(itsContext),
      flags(kCFSocketCloseOnInvalidate | (itsTypes & kReadOrAccept)),
      enabled(itsTypes) {
    if ((types & kCFSocketAcceptCallBack) != 0) {
        MakeNonBlocking(native);
    }
}

__CFSocket::~__CFSocket() {
    Table::Get().TakeOut(static_cast<std::size_t>(native), this);
    // One that had a source went because its run loop did, not because a client ended it.
    if (valid && !hadSource) {
        Close();
    }
}

void __CFSocket::Close() {
    if ((flags & kCFSocketCloseOnInvalidate) != 0 && IdentityOf(native) == identity) {
        close(native);
    }
}

void __CFSocket::Invalidate() noexcept {
    Ref<Source> itsSource;
    bool isInUse;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (!valid) return;
        valid = false;
        isInUse = users > 0;
        if (source != nullptr && source->TryRetain()) {
            itsSource = Ref<Source>::Adopt(source);
        }
    }
    Table::Get().TakeOut(static_cast<std::size_t>(native), this);
    if (itsSource) {
        itsSource->Invalidate();
    }
    Close();
    // Otherwise the callback that is using it releases it when it is done.
    if (!isInUse) {
        context.Release();
    }
}

Ref<__CFRunLoopSource> __CFSocket::TheSource() {
    const std::lock_guard<std::mutex> lock(mutex);
    if (!valid) {
        return Ref<__CFRunLoopSource>();
    }
    if (source == nullptr || !source->TryRetain()) {
        source = new Source(Ref<__CFSocket>::Retain(this), InterestLocked());
        hadSource = true;
    }
    return Ref<__CFRunLoopSource>::Adopt(source);
}

CFOptionFlags __CFSocket::Flags() {
    const std::lock_guard<std::mutex> lock(mutex);
    return flags;
}

void __CFSocket::SetFlags(CFOptionFlags itsFlags) {
    const std::lock_guard<std::mutex> lock(mutex);
    flags = itsFlags;
}

void __CFSocket::Enable(CFOptionFlags callBackTypes) noexcept {
    Ref<Source> told;
    const std::lock_guard<std::mutex> lock(mutex);
    enabled |= callBackTypes & types;
    told = TellSourceLocked();
}

void __CFSocket::Disable(CFOptionFlags callBackTypes) noexcept {
    Ref<Source> told;
    const std::lock_guard<std::mutex> lock(mutex);
    enabled &= ~callBackTypes;
    told = TellSourceLocked();
}

std::uint32_t __CFSocket::InterestLocked() const {
    const bool reads = (enabled & kReadOrAccept) != 0;
    const bool writes = (enabled & kCFSocketWriteCallBack) != 0;
    return (reads ? std::uint32_t{EPOLLIN} : 0) | (writes ? std::uint32_t{EPOLLOUT} : 0);
}

Ref<__CFSocket::Source> __CFSocket::TellSourceLocked() {
    if (!valid || source == nullptr || !source->TryRetain()) {
        return Ref<Source>();
    }
    Ref<Source> told = Ref<Source>::Adopt(source);
    told->SetInterest(InterestLocked());
    return told;
}

void __CFSocket::Serve(Source& itsSource, std::uint32_t events) {
    const bool failed = (events & (EPOLLERR | EPOLLHUP)) != 0;
    if ((events & EPOLLIN) != 0 || failed) {
        if ((types & kCFSocketAcceptCallBack) != 0) {
            Accept(itsSource);
        } else {
            Tell(kCFSocketReadCallBack, nullptr, nullptr);
        }
    }
    if ((events & EPOLLOUT) != 0 || failed) {
        Tell(kCFSocketWriteCallBack, nullptr, nullptr);
    }
}

bool __CFSocket::Wants(CFSocketCallBackType what) {
    const std::lock_guard<std::mutex> lock(mutex);
    return valid && (enabled & what) != 0;
}

bool __CFSocket::Tell(CFSocketCallBackType what, CFDataRef address, const void* data) {
    Ref<Source> told;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (!valid || (enabled & what) == 0) return false;
        if ((flags & what) == 0) {
            enabled &= ~what;
            told = TellSourceLocked();
        }
        ++users;
    }
    frameworks::CallOutToTheClient(callOut, this, what, address, data, context.Info());
    LeaveContext();
    return true;
}

void __CFSocket::LeaveContext() {
    bool isLast;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        isLast = --users == 0 && !valid;
    }
    if (isLast) {
        context.Release();
    }
}

void __CFSocket::Accept(Source& itsSource) {
    // One connection a turn: the next wait costs less than asking in vain whether there is another
    // one, and those who have been served for long get their turn in between.
    if (!Wants(kCFSocketAcceptCallBack)) return;
    sockaddr_storage peer;
    socklen_t length = sizeof peer;
    const int accepted =
        accept4(native, reinterpret_cast<sockaddr*>(&peer), &length, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (accepted != -1) {
        if (!HandOver(accepted, &peer, length)) {
            close(accepted);
        }
    } else if (errno != EAGAIN && errno != EWOULDBLOCK && !IsPassing(errno)) {
        // Above all when descriptors or memory have run out. The connection goes on waiting, and
        // the loop would report it again and again.
        itsSource.SetInterest(0);
        itsSource.CallAfter(kPause);
    }
}

bool __CFSocket::HandOver(CFSocketNativeHandle accepted, const void* peer, std::size_t peerLength) {
    const Ref<__CFData> address =
        __CFData::Make(std::string_view(static_cast<const char*>(peer), peerLength));
    return Tell(kCFSocketAcceptCallBack, address.Get(), &accepted);
}

std::string __CFSocket::Describe() const {
    const std::string head = DescribeHead() + "{descriptor " + std::to_string(native);
    auto& self = const_cast<__CFSocket&>(*this);
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (!valid) return head + ", invalid}";
        ++self.users;
    }
    const std::string what = context.Describe();
    self.LeaveContext();
    return head + ", valid" + (what.empty() ? what : ", " + what) + "}";
}

CFSocketRef CFSocketCreateWithNative(CFAllocatorRef /*allocator*/, CFSocketNativeHandle sock,
                                     CFOptionFlags callBackTypes, CFSocketCallBack callout,
                                     const CFSocketContext* context) {
    // What both bits together stand for on the Mac is not offered, nor is any other bit.
    if ((callBackTypes & kReadOrAccept) == kReadOrAccept ||
        (callBackTypes & ~(kReadOrAccept | kCFSocketWriteCallBack)) != 0) {
        return nullptr;
    }
    if (callout == nullptr) {
        frameworks::Misuse("CFSocketCreateWithNative", "there is nothing to call");
    }
    try {
        return __CFSocket::Of(sock, callBackTypes, callout, context).Leak();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void CFSocketInvalidate(CFSocketRef s) {
    CheckedMutable<__CFSocket>(s, "CFSocketInvalidate").Invalidate();
}

CFRunLoopSourceRef CFSocketCreateRunLoopSource(CFAllocatorRef /*allocator*/, CFSocketRef s,
                                               CFIndex /*order*/) {
    __CFSocket& socket = CheckedMutable<__CFSocket>(s, "CFSocketCreateRunLoopSource");
    try {
        return socket.TheSource().Leak();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

CFOptionFlags CFSocketGetSocketFlags(CFSocketRef s) {
    return CheckedMutable<__CFSocket>(s, "CFSocketGetSocketFlags").Flags();
}

void CFSocketSetSocketFlags(CFSocketRef s, CFOptionFlags flags) {
    CheckedMutable<__CFSocket>(s, "CFSocketSetSocketFlags").SetFlags(flags);
}

void CFSocketDisableCallBacks(CFSocketRef s, CFOptionFlags callBackTypes) {
    CheckedMutable<__CFSocket>(s, "CFSocketDisableCallBacks").Disable(callBackTypes);
}

void CFSocketEnableCallBacks(CFSocketRef s, CFOptionFlags callBackTypes) {
    CheckedMutable<__CFSocket>(s, "CFSocketEnableCallBacks").Enable(callBackTypes);
}
