#include "support/Client.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace {

int PortOf(int (*end)(int, sockaddr*, socklen_t*), int connection) {
    sockaddr_in address = {};
    socklen_t length = sizeof address;
    if (end(connection, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        throw Failed(std::string("the connection has no such end: ") + std::strerror(errno));
    }
    return ntohs(address.sin_port);
}

bool WaitFor(int connection, short event, const Deadline& deadline) {
    pollfd waited = {connection, event, 0};
    return poll(&waited, 1, deadline.Milliseconds()) > 0;
}

}  // namespace

Client::Client(Descriptor connected) : connection(std::move(connected)) {
    fcntl(connection.Get(), F_SETFL, fcntl(connection.Get(), F_GETFL) | O_NONBLOCK);
}

bool Client::TrySend(const std::string& bytes) {
    Deadline deadline;
    for (std::size_t sent = 0; sent < bytes.size();) {
        const ssize_t count =
            send(connection.Get(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count >= 0) {
            sent += static_cast<std::size_t>(count);
            deadline = Deadline();
        } else if (errno == EAGAIN) {
            if (!WaitFor(connection.Get(), POLLOUT, deadline)) {
                throw Failed("the service does not take what is sent");
            }
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

void Client::Send(const std::string& bytes) {
    if (!TrySend(bytes)) {
        throw Failed(std::string("cannot send: ") + std::strerror(errno));
    }
}

bool Client::Fill(const Deadline& deadline) {
    char buffer[65536];
    for (;;) {
        const ssize_t count = recv(connection.Get(), buffer, sizeof buffer, 0);
        if (count > 0) {
            received.append(buffer, static_cast<std::size_t>(count));
            return true;
        }
        if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
            return false;
        }
        if (!WaitFor(connection.Get(), POLLIN, deadline) && deadline.Passed()) {
            throw Failed("nothing came in time; received so far: \"" + received.substr(taken, 200) +
                         "\"");
        }
    }
}

std::string Client::Receive(std::chrono::milliseconds patience) {
    const Deadline deadline(patience);
    for (;;) {
        const std::size_t bar = received.find('|', searched);
        if (bar != std::string::npos) {
            const std::string message = received.substr(taken, bar - taken);
            taken = searched = bar + 1;
            if (taken > 1024 * 1024) {
                received.erase(0, taken);
                taken = searched = 0;
            }
            return message;
        }
        searched = received.size();
        if (!Fill(deadline)) {
            throw Failed("the service closed the connection instead of answering; received: \"" +
                         received.substr(taken, 200) + "\"");
        }
    }
}

std::string Client::ReceiveExactBytes(std::size_t count) {
    const Deadline deadline;
    while (received.size() - taken < count) {
        if (!Fill(deadline)) {
            throw Failed("the service closed the connection too early");
        }
    }
    const std::string bytes = received.substr(taken, count);
    taken += count;
    searched = taken;
    return bytes;
}

std::string Client::Ask(const std::string& command) {
    Send(command + "|");
    return Receive();
}

void Client::ExpectClosed() {
    const Deadline deadline;
    while (Fill(deadline)) {
    }
    if (received.size() > taken) {
        throw Failed("expected nothing before the end, received \"" + received.substr(taken, 200) +
                     "\"");
    }
}

void Client::ExpectSilence(std::chrono::milliseconds duration) {
    const Deadline deadline(duration);
    try {
        if (!Fill(deadline)) {
            throw std::runtime_error("expected silence, but the service closed the connection");
        }
    } catch (const Failed&) {
        if (received.size() == taken) {
            return;
        }
    }
    throw Failed("expected silence, received \"" + received.substr(taken, 200) + "\"");
}

std::size_t Client::UnreadByService(Sandbox& sandbox) const {
    return sandbox.UnreadBytes(PortOf(getpeername, connection.Get()),
                               PortOf(getsockname, connection.Get()));
}

void Client::WaitUntilRead(Sandbox& sandbox) const {
    WaitUntil("the service has read what was sent", [&] { return UnreadByService(sandbox) == 0; });
}

void Client::Reset() {
    const linger atOnce = {1, 0};
    setsockopt(connection.Get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    connection.Close();
}

void Client::ShutDownSending() {
    shutdown(connection.Get(), SHUT_WR);
}
