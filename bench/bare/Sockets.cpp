#include "bare/Sockets.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdint>

#include "support/Failure.h"

namespace {

constexpr int kBacklog = 1024;

}  // namespace

Descriptor Listen(int port) {
    Descriptor listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int on = 1;
    setsockopt(listener.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    if (bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener.Get(), kBacklog) != 0) {
        FailWithErrno("listen");
    }
    return listener;
}

int Accept(int listener) {
    const int client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (client >= 0) {
        const int on = 1;
        setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    }
    return client;
}

void Watch(int epoll, int socket) {
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.fd = socket;
    if (epoll_ctl(epoll, EPOLL_CTL_ADD, socket, &event) != 0) {
        FailWithErrno("epoll_ctl");
    }
}

bool SendAll(int client, const char* bytes, std::size_t length) {
    while (length > 0) {
        const ssize_t sent = send(client, bytes, length, MSG_NOSIGNAL);
        if (sent >= 0) {
            bytes += sent;
            length -= static_cast<std::size_t>(sent);
        } else if (errno == EAGAIN) {
            pollfd writable = {client, POLLOUT, 0};
            poll(&writable, 1, -1);
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}
