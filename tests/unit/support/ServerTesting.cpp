#include "unit/support/ServerTesting.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>

#include "net/Outbox.h"
#include "unit/support/Waiting.h"

namespace {

constexpr int kNone = -1;

int PatienceInMilliseconds() {
    return static_cast<int>(std::chrono::milliseconds(kPatience).count());
}

bool CanBeRead(int socket, int milliseconds) {
    pollfd waiting = {socket, POLLIN, 0};
    return poll(&waiting, 1, milliseconds) == 1;
}

void Nothing(CFSocketRef /*socket*/, CFSocketCallBackType /*type*/, CFDataRef /*address*/,
             const void* /*data*/, void* /*info*/) {}

int Accept(int listener) {
    EXPECT_TRUE(CanBeRead(listener, PatienceInMilliseconds()));
    const int accepted = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    EXPECT_NE(-1, accepted);
    return accepted;
}

int PortOf(const Server& server) {
    sockaddr_in address = {};
    socklen_t length = sizeof address;
    EXPECT_EQ(0, getsockname(server.getServerFD(), reinterpret_cast<sockaddr*>(&address), &length));
    return ntohs(address.sin_port);
}

}  // namespace

Peer::Peer(int port) : socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    EXPECT_EQ(0, connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address));
}

void Peer::Send(std::string_view bytes) const {
    while (!bytes.empty()) {
        const ssize_t sent = send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0) {
            ADD_FAILURE() << "cannot send: errno " << errno;
            return;
        }
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
}

std::string Peer::Receive(std::size_t length) const {
    std::string bytes;
    while (bytes.size() < length) {
        char part[65536];
        if (!CanBeRead(socket, PatienceInMilliseconds())) {
            ADD_FAILURE() << "waited in vain behind '" << bytes.substr(0, 200) << "'";
            break;
        }
        const ssize_t received =
            recv(socket, part, std::min(sizeof part, length - bytes.size()), 0);
        if (received <= 0) {
            break;
        }
        bytes.append(part, static_cast<std::size_t>(received));
    }
    return bytes;
}

std::string Peer::ReceiveMessage() const {
    std::string message;
    for (;;) {
        const std::string byte = Receive(1);
        if (byte.empty()) {
            return message + "<no more>";
        }
        if (byte == "|") {
            return message;
        }
        message += byte;
    }
}

std::string Peer::ReceiveTheRest() const {
    std::string bytes;
    while (CanBeRead(socket, PatienceInMilliseconds())) {
        char part[65536];
        const ssize_t received = recv(socket, part, sizeof part, 0);
        if (received <= 0) {
            return bytes;
        }
        bytes.append(part, static_cast<std::size_t>(received));
    }
    return bytes + "<still open>";
}

bool Peer::HasNothing() const {
    return !CanBeRead(socket, 0);
}

bool Peer::IsAtTheEnd() const {
    char byte;
    return CanBeRead(socket, PatienceInMilliseconds()) && recv(socket, &byte, 1, 0) <= 0;
}

void Peer::Close() {
    if (socket != kNone) {
        close(socket);
        socket = kNone;
    }
}

void Peer::Reset() {
    const linger atOnce = {1, 0};
    EXPECT_EQ(0, setsockopt(socket, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce));
    Close();
}

void Peer::EndSending() const {
    EXPECT_EQ(0, shutdown(socket, SHUT_WR));
}

Connection::Connection(Server& itsServer)
    : peer(PortOf(itsServer)), socket(Accept(itsServer.getServerFD())), server(itsServer) {
    wasKept =
        server.serverCallBack(nullptr, kCFSocketAcceptCallBack, nullptr, &socket, nullptr) == 1;
    if (!wasKept) {
        close(socket);
        return;
    }
    wrapper = CFOwner<CFSocketRef>::Adopt(
        CFSocketCreateWithNative(kCFAllocatorDefault, socket,
                                 kCFSocketReadCallBack | kCFSocketWriteCallBack, Nothing, nullptr));
    // The descriptor is the server's to close.
    CFSocketSetSocketFlags(wrapper.Get(), kCFSocketAutomaticallyReenableReadCallBack);
    CFSocketDisableCallBacks(wrapper.Get(), kCFSocketWriteCallBack);
    Outbox::Open(socket, wrapper.Get());
}

void Connection::WaitForBytes(std::size_t count) const {
    const auto areThere = [this, count] {
        int waiting = 0;
        return ioctl(socket, FIONREAD, &waiting) == 0 && static_cast<std::size_t>(waiting) >= count;
    };
    EXPECT_TRUE(WaitUntil(areThere)) << "not all of the " << count << " bytes arrived";
}

Status Connection::Deliver(std::string_view bytes) const {
    peer.Send(bytes);
    WaitForBytes(bytes.size());
    return server.handleReceive(socket);
}

Status Connection::Receive() const {
    EXPECT_TRUE(CanBeRead(socket, PatienceInMilliseconds())) << "nothing happens";
    return server.handleReceive(socket);
}

bool Connection::IsOpen() const {
    return fcntl(socket, F_GETFD) != -1;
}
