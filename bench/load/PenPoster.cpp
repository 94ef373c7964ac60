#include "load/PenPoster.h"

#include <cerrno>

#include "support/Failure.h"

PenPoster::PenPoster() : listener(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
    const penEvents::Address address = penEvents::AddressOf(getpid());
    if (bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address.name), address.length) !=
            0 ||
        listen(listener.Get(), 1) != 0) {
        FailWithErrno("post pen events");
    }
}

void PenPoster::Accept() {
    tap = Descriptor(accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!tap.IsOpen()) {
        FailWithErrno("accept a tap");
    }
}

void PenPoster::Post(const penEvents::Record& event) const {
    while (send(tap.Get(), &event, sizeof event, MSG_NOSIGNAL) != sizeof event) {
        if (errno != EINTR) FailWithErrno("post");
    }
}
