#include "CoreGraphics/EventTap.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <new>

#include "CoreFoundation/CallOut.h"
#include "CoreGraphics/Event.h"

namespace frameworks {
namespace {

// Whether the other end belongs to that very process, and to somebody whom we may listen to. Asked
// of the connection, because a process may be gone and its number in use again by now.
bool BelongsTo(pid_t poster, int socket) {
    ucred peer;
    socklen_t size = sizeof peer;
    return getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.pid == poster &&
           (peer.uid == 0 || peer.uid == geteuid());
}

UniqueDescriptor ConnectTo(pid_t poster) {
    UniqueDescriptor connection(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!connection.IsOpen()) return {};
    const penEvents::Address address = penEvents::AddressOf(poster);
    int result = -1;
    do {
        result = connect(connection.Get(), reinterpret_cast<const sockaddr*>(&address.name),
                         address.length);
    } while (result == -1 && errno == EINTR);
    // A poster that does not take its taps in is not waited for.
    if (result == -1 || !BelongsTo(poster, connection.Get())) return {};
    return connection;
}

bool IsEvent(const penEvents::Record& record) {
    switch (record.type) {
        case kCGEventLeftMouseDown:
        case kCGEventLeftMouseUp:
        case kCGEventLeftMouseDragged:
        case kCGEventTabletPointer:
        case kCGEventTabletProximity:
            return record.version == penEvents::kVersion;
        default:
            return false;
    }
}

}  // namespace

EventTap::EventTap(UniqueDescriptor itsSocket, CGEventMask itsWanted,
                   CGEventTapCallBack itsCallBack, void* itsUserInfo)
    : __CFMachPort(std::move(itsSocket)),
      wanted(itsWanted),
      callBack(itsCallBack),
      userInfo(itsUserInfo) {}

Ref<__CFMachPort> EventTap::Create(pid_t poster, CGEventMask wanted, CGEventTapCallBack callBack,
                                   void* userInfo) {
    UniqueDescriptor connection = ConnectTo(poster);
    if (!connection.IsOpen()) return {};
    return Ref<__CFMachPort>::Adopt(
        new EventTap(std::move(connection), wanted, callBack, userInfo));
}

__CFMachPort::More EventTap::Receive(int socket) {
    // On the stack: a callback may run the loop, which comes here again.
    penEvents::Record records[kEventsAtOnce];
    iovec places[kEventsAtOnce];
    mmsghdr packets[kEventsAtOnce] = {};
    for (unsigned index = 0; index < kEventsAtOnce; ++index) {
        places[index] = {&records[index], sizeof records[index]};
        packets[index].msg_hdr.msg_iov = &places[index];
        packets[index].msg_hdr.msg_iovlen = 1;
    }
    // With the length that the packet had, not that of what was kept of it.
    const int count =
        recvmmsg(socket, packets, kEventsAtOnce, MSG_TRUNC | MSG_CMSG_CLOEXEC, nullptr);
    if (count == -1) {
        return errno == EAGAIN || errno == EINTR ? More::kMayCome : More::kNever;
    }
    for (int index = 0; index < count; ++index) {
        if (packets[index].msg_len != sizeof records[index]) continue;
        if (!IsStillWanted()) return More::kNever;
        Tell(records[index]);
    }
    // The end reads as an empty packet, and an empty packet as well.
    const bool mayBeTheEnd = count == 0 || packets[count - 1].msg_len == 0;
    return mayBeTheEnd && HasEnded(socket) ? More::kNever : More::kMayCome;
}

void EventTap::Tell(const penEvents::Record& record) {
    if (!IsEvent(record) || (wanted & CGEventMaskBit(record.type)) == 0) return;
    __CGEvent event(record);
    CallOutToTheClient(callBack, CGEventTapProxy(nullptr), static_cast<CGEventType>(record.type),
                       CGEventRef(&event), userInfo);
}

}  // namespace frameworks

CFMachPortRef CGEventTapCreateForPSN(void* processSerialNumber, CGEventTapPlacement /*place*/,
                                     CGEventTapOptions options, CGEventMask eventsOfInterest,
                                     CGEventTapCallBack callback, void* userInfo) {
    const char* const call = "CGEventTapCreateForPSN";
    if (processSerialNumber == nullptr) frameworks::Misuse(call, "the process is null");
    if (callback == nullptr) frameworks::Misuse(call, "there is nothing to call");
    const auto& psn = *static_cast<const ProcessSerialNumber*>(processSerialNumber);
    if (options != kCGEventTapOptionListenOnly || psn.highLongOfPSN != 0 || psn.lowLongOfPSN == 0 ||
        psn.lowLongOfPSN > INT_MAX) {
        return nullptr;
    }
    try {
        return frameworks::EventTap::Create(static_cast<pid_t>(psn.lowLongOfPSN), eventsOfInterest,
                                            callback, userInfo)
            .Leak();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
