#include "load/Connection.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <cstdint>

#include "support/Failure.h"

namespace {

constexpr int kSecondsToAnswer = 10;

Descriptor ConnectTo(int port) {
    Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    if (connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return Descriptor();
    }
    return socket;
}

}  // namespace

bool IsListening(int port) {
    return ConnectTo(port).IsOpen();
}

Connection::Connection(int port) : socket(ConnectTo(port)) {
    if (!socket.IsOpen()) {
        FailWithErrno("connect to port " + std::to_string(port));
    }
    const int on = 1;
    setsockopt(socket.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    const timeval patience = {kSecondsToAnswer, 0};
    setsockopt(socket.Get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    setsockopt(socket.Get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
}

void Connection::Send(const char* bytes, std::size_t length) const {
    while (length > 0) {
        const ssize_t sent = send(socket.Get(), bytes, length, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent < 0) FailWithErrno("send");
        bytes += sent;
        length -= static_cast<std::size_t>(sent);
    }
}

std::size_t Connection::ReceiveSome(char* bytes, std::size_t room) const {
    for (;;) {
        const ssize_t length = recv(socket.Get(), bytes, room, 0);
        if (length > 0) return static_cast<std::size_t>(length);
        if (length == 0) throw Failure("the server has closed the connection");
        if (errno != EINTR) FailWithErrno("recv");
    }
}

void Connection::Receive(char* bytes, std::size_t length) const {
    while (length > 0) {
        const std::size_t received = ReceiveSome(bytes, length);
        bytes += received;
        length -= received;
    }
}

std::string Connection::Receive(std::size_t length) const {
    std::string bytes(length, '\0');
    Receive(&bytes[0], length);
    return bytes;
}

std::string Connection::ReceiveUntil(char end) const {
    std::string bytes;
    do {
        bytes += Receive(1);
    } while (bytes.back() != end);
    return bytes;
}
