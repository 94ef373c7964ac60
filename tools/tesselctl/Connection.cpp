#include "tesselctl/Connection.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdint>

namespace tesselctl {
namespace {

// No message of the service comes near this; it keeps a stranger from filling the memory.
constexpr std::size_t kLongestMessage = std::size_t{16} << 20;

enum class Wait { kReady, kTimedOut, kInterrupted };

Wait WaitFor(int socket, short events, Deadline deadline, const Interruption& interruption) {
    for (;;) {
        pollfd polled[2] = {{socket, events, 0}, {interruption.descriptor, POLLIN, 0}};
        const nfds_t count = interruption.descriptor == -1 ? 1 : 2;
        const int ready = poll(polled, count, deadline.PollTime());
        if (ready > 0 && count == 2 && polled[1].revents != 0 && interruption.stop())
            return Wait::kInterrupted;
        if (ready > 0 && polled[0].revents != 0) return Wait::kReady;
        if (deadline.Passed()) return Wait::kTimedOut;
    }
}

ReadStatus StatusOf(Wait wait) {
    return wait == Wait::kInterrupted ? ReadStatus::kInterrupted : ReadStatus::kTimedOut;
}

// Non-blocking, closed on exec, without a delay for small messages, and silent about a peer that
// has gone.
Descriptor MakeSocket() {
    Descriptor made(socket(AF_INET, SOCK_STREAM, 0));
    if (!made.Valid()) return made;
    fcntl(made.Get(), F_SETFD, FD_CLOEXEC);
    fcntl(made.Get(), F_SETFL, O_NONBLOCK);
    const int on = 1;
    setsockopt(made.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
#ifdef SO_NOSIGPIPE
    setsockopt(made.Get(), SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
#endif
    return made;
}

#ifdef MSG_NOSIGNAL
constexpr int kSendFlags = MSG_NOSIGNAL;
#else
constexpr int kSendFlags = 0;
#endif

bool WouldBlock(int error) {
    return error == EAGAIN || error == EWOULDBLOCK;
}

}  // namespace

std::variant<Connection, ConnectFailure> Connection::Open(int port, Deadline deadline,
                                                          const Interruption& interruption) {
    Descriptor made = MakeSocket();
    if (!made.Valid()) return ConnectFailure{ConnectStatus::kFailed, errno};
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int error = 0;
    if (connect(made.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == -1) {
        // An interrupted connect() goes on in the background, like one that would have blocked.
        error = errno;
        if (error == EINPROGRESS || error == EINTR) {
            switch (WaitFor(made.Get(), POLLOUT, deadline, interruption)) {
                case Wait::kTimedOut:
                    return ConnectFailure{ConnectStatus::kTimedOut, 0};
                case Wait::kInterrupted:
                    return ConnectFailure{ConnectStatus::kInterrupted, 0};
                case Wait::kReady:
                    break;
            }
            socklen_t size = sizeof error;
            if (getsockopt(made.Get(), SOL_SOCKET, SO_ERROR, &error, &size) == -1) error = errno;
        }
    }
    if (error == ECONNREFUSED) return ConnectFailure{ConnectStatus::kRefused, error};
    if (error != 0) return ConnectFailure{ConnectStatus::kFailed, error};
    return Connection(std::move(made));
}

ReadStatus Connection::Send(std::string_view bytes, Deadline deadline,
                            const Interruption& interruption) {
    while (!bytes.empty()) {
        const ssize_t sent = send(socket.Get(), bytes.data(), bytes.size(), kSendFlags);
        if (sent >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(sent));
        } else if (WouldBlock(errno)) {
            const Wait wait = WaitFor(socket.Get(), POLLOUT, deadline, interruption);
            if (wait != Wait::kReady) return StatusOf(wait);
        } else if (errno != EINTR) {
            return ReadStatus::kClosed;
        }
    }
    return ReadStatus::kMessage;
}

ReadStatus Connection::Receive(Deadline deadline, const Interruption& interruption) {
    char bytes[16384];
    const ssize_t received = recv(socket.Get(), bytes, sizeof bytes, 0);
    if (received > 0) {
        reader.Append({bytes, static_cast<std::size_t>(received)});
    } else if (received == 0 || (!WouldBlock(errno) && errno != EINTR)) {
        closed = true;
    } else if (errno != EINTR) {
        const Wait wait = WaitFor(socket.Get(), POLLIN, deadline, interruption);
        if (wait != Wait::kReady) return StatusOf(wait);
    }
    return ReadStatus::kMessage;
}

Incoming Connection::Read(Deadline deadline, const Interruption& interruption) {
    for (;;) {
        if (std::optional<Message> message = reader.Next())
            return {ReadStatus::kMessage, std::move(*message)};
        if (closed) return {ReadStatus::kClosed, {}};
        if (reader.PendingSize() > kLongestMessage) return {ReadStatus::kTooLong, {}};
        const ReadStatus status = Receive(deadline, interruption);
        if (status != ReadStatus::kMessage) return {status, {}};
    }
}

Incoming Connection::ReadBytes(Deadline deadline, const Interruption& interruption) {
    for (;;) {
        if (reader.PendingSize() > 0) return {ReadStatus::kMessage, {false, reader.TakeBytes()}};
        if (closed) return {ReadStatus::kClosed, {}};
        const ReadStatus status = Receive(deadline, interruption);
        if (status != ReadStatus::kMessage) return {status, {}};
    }
}

bool Connection::Finish(Deadline deadline, const std::function<void(const Message&)>& late) {
    // Nobody is there any more.
    if (shutdown(socket.Get(), SHUT_WR) == -1) return true;
    for (;;) {
        const Incoming incoming = Read(deadline, {});
        if (incoming.status == ReadStatus::kClosed) return true;
        // Somebody who sends without an end is not waited for.
        if (incoming.status != ReadStatus::kMessage || deadline.Passed()) return false;
        late(incoming.message);
    }
}

}  // namespace tesselctl
