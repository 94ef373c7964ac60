#include "driver/TapServer.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <cerrno>
#include <iterator>
#include <system_error>

namespace driver {
namespace {

constexpr int kBacklog = 16;
constexpr std::chrono::seconds kRest{1};

// Whether what is missing may be there later.
bool IsShortOfMeans(int error) {
    return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

Descriptor NewListener() {
    Descriptor listener(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const penEvents::Address address = penEvents::AddressOf(getpid());
    if (!listener.IsOpen() ||
        bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address.name), address.length) ==
            -1 ||
        listen(listener.Get(), kBacklog) == -1) {
        throw std::system_error(errno, std::generic_category(), "cannot be tapped");
    }
    return listener;
}

bool MayTap(int socket) {
    ucred peer;
    socklen_t size = sizeof peer;
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == -1) return false;
    return geteuid() == 0 || peer.uid == geteuid() || peer.uid == 0;
}

}  // namespace

TapServer::TapServer(Loop& itsLoop)
    : loop(itsLoop), listener(NewListener()), alarm(loop, [this] { Wake(); }) {
    loop.Watch(listener.Get(), EPOLLIN, [this](std::uint32_t) { Accept(); });
}

TapServer::~TapServer() {
    loop.Forget(listener.Get());
    for (const Tap& tap : taps) {
        loop.Forget(tap.socket.Get());
    }
}

void TapServer::Accept() {
    Descriptor accepted(accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!accepted.IsOpen() && IsShortOfMeans(errno)) {
        Rest();
    }
    if (!accepted.IsOpen() || taps.size() == kMostTaps || !MayTap(accepted.Get())) return;
    taps.push_back({std::move(accepted), {}, 0});
    const Place tap = std::prev(taps.end());
    loop.Watch(tap->socket.Get(), EPOLLIN,
               [this, tap](std::uint32_t events) { Serve(tap, events); });
    Say();
}

// A listener that is watched while nobody can be accepted would call at once, again and again.
void TapServer::Rest() {
    loop.Change(listener.Get(), 0);
    alarm.CallAt(Timer::Clock::now() + kRest);
}

void TapServer::Wake() {
    loop.Change(listener.Get(), EPOLLIN);
}

void TapServer::Serve(Place tap, std::uint32_t events) {
    // A tap has nothing to say, so this is its end, or it is none.
    const bool hasLeft = (events & ~std::uint32_t{EPOLLOUT}) != 0;
    if (hasLeft || !Catch(*tap)) {
        Drop(tap);
        Say();
    } else if (!tap->IsBehind()) {
        Say();
    }
}

TapServer::Sent TapServer::Send(const Tap& tap, const penEvents::Record& event) {
    for (;;) {
        const ssize_t sent =
            send(tap.socket.Get(), &event, sizeof event, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent == sizeof event) return Sent::kAll;
        if (sent == -1 && errno == EINTR) continue;
        const bool isFull =
            sent == -1 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == ENOBUFS);
        return isFull ? Sent::kNotYet : Sent::kNever;
    }
}

bool TapServer::Hand(Tap& tap, const penEvents::Record& event) {
    if (!tap.IsBehind()) {
        const Sent sent = Send(tap, event);
        if (sent != Sent::kNotYet) return sent == Sent::kAll;
        tap.waiting.clear();
        tap.first = 0;
        loop.Change(tap.socket.Get(), EPOLLIN | EPOLLOUT);
    }
    if (tap.waiting.size() - tap.first == kMostWaiting) return false;
    tap.waiting.push_back(event);
    return true;
}

bool TapServer::Catch(Tap& tap) {
    while (tap.IsBehind()) {
        const Sent sent = Send(tap, tap.waiting[tap.first]);
        if (sent == Sent::kNever) return false;
        if (sent == Sent::kNotYet) {
            // What has been sent takes no more room than what has not.
            if (tap.first > kMostWaiting) {
                tap.waiting.erase(tap.waiting.begin(),
                                  tap.waiting.begin() + static_cast<std::ptrdiff_t>(tap.first));
                tap.first = 0;
            }
            return true;
        }
        ++tap.first;
    }
    loop.Change(tap.socket.Get(), EPOLLIN);
    return true;
}

void TapServer::Post(const penEvents::Record& event) {
    const std::size_t before = taps.size();
    for (Place tap = taps.begin(); tap != taps.end();) {
        const Place next = std::next(tap);
        if (!Hand(*tap, event)) {
            Drop(tap);
        }
        tap = next;
    }
    if (taps.size() != before) {
        Say();
    }
}

bool TapServer::IsDone() const {
    for (const Tap& tap : taps) {
        if (tap.IsBehind()) return false;
    }
    return true;
}

void TapServer::CutOffTheSlow() {
    for (Place tap = taps.begin(); tap != taps.end();) {
        const Place next = std::next(tap);
        if (tap->IsBehind()) {
            Drop(tap);
        }
        tap = next;
    }
}

void TapServer::Drop(Place tap) {
    loop.Forget(tap->socket.Get());
    taps.erase(tap);
    Wake();
}

void TapServer::Say() const {
    if (callBack) {
        callBack();
    }
}

}  // namespace driver
