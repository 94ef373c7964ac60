// A client of a server in this very process: its end of the connection, and the number that the
// service's end has.
//
// Threads: the one that made it. Nothing here waits for longer than kPatience; whoever waits lets
// the main run loop serve meanwhile.
#pragma once

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <linux/sockios.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "LoopTurns.h"
#include "Require.h"
#include "Support/UniqueDescriptor.h"

class Client {
  public:
    static constexpr std::chrono::seconds kPatience{20};

    // SMALL: neither side has room for much.
    Client(int port, bool small)
        : descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)),
          serversPort(static_cast<std::uint16_t>(port)) {
        Set(SOL_SOCKET, SO_RCVBUF, small ? 2048 : 1 << 18);
        Set(IPPROTO_TCP, TCP_NODELAY, 1);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(serversPort);
        const auto* const name = reinterpret_cast<const sockaddr*>(&address);
        Require(Comes([&] {
                    const int result = connect(descriptor.Get(), name, sizeof address);
                    return result == 0 || errno == EISCONN || errno == ECONNRESET;
                }),
                "a listener takes a connection");
        Require(Comes([this] { return FindServersEnd() || HasEnded(); }),
                "a connection is accepted");
        if (serversEnd != -1 && small) {
            const int size = 2048;
            setsockopt(serversEnd, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
        }
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    ~Client() { Reset(); }

    // -1 for a connection that was turned away.
    int ServersEnd() const { return serversEnd; }

    // Sends BYTES, of which there are no more than fit, and sees to it that they arrive. The main
    // thread's servers do not read them before AwaitReading.
    void Send(std::string_view bytes) {
        const ssize_t sent = send(descriptor.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent == -1 && errno != EAGAIN) return;
        Require(sent == static_cast<ssize_t>(bytes.size()), "there is room for what is sent");
        Require(Comes([this] { return Left(descriptor.Get(), SIOCOUTQ) == 0 || HasEnded(); }, 0),
                "what is sent arrives");
    }
    void AwaitReading() {
        Require(Comes([this] { return !IsServed() || Left(serversEnd, FIONREAD) == 0; }),
                "what arrives is read");
    }
    // Reads until COUNT bars have come, or the end.
    void Read(std::size_t count) {
        Require(Comes([this, count] { return ReadWhatIsThere() || bars >= count; }),
                "every answer comes");
    }
    // Not yet taken, up to the last bar.
    std::string TakeMessages() {
        const std::size_t end = received.rfind('|') + 1;
        const std::string messages = received.substr(0, end);
        received.erase(0, end);
        bars = 0;
        return messages;
    }
    bool HasRest() const { return !received.empty(); }
    // Whether the server has closed the connection; everything has been read then.
    bool HasEnded() { return ReadWhatIsThere(); }
    void AwaitEnd() {
        Require(Comes([this] { return HasEnded(); }), "a connection is closed");
        Require(Comes([this] { return !IsServed(); }), "by both");
    }

    // The three ways to leave; the server has noticed when they return.
    void Close() { Leave(false); }
    void Reset() { Leave(true); }
    void EndSending() {
        shutdown(descriptor.Get(), SHUT_WR);
        AwaitEnd();
    }

  private:
    // Whether CONDITION comes to hold while the loop makes so many TURNS each time.
    template <typename Condition>
    static bool Comes(Condition condition, int turns = 1) {
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        for (int round = 0; !condition(); ++round) {
            if (std::chrono::steady_clock::now() > deadline) return false;
            LoopTurns::Make(turns);
            // The other thread, or the network, needs the processor.
            if (round > 16) usleep(50);
        }
        return true;
    }
    // Without the C library: the other thread closes its end at any time, and ThreadSanitizer would
    // take the two for a race.
    static int Left(int socket, unsigned long what) {
        int count = 0;
        return syscall(SYS_ioctl, socket, what, &count) == 0 ? count : 0;
    }
    void Set(int level, int option, int value) const {
        setsockopt(descriptor.Get(), level, option, &value, sizeof value);
    }
    // The port of one end of a connection, as told by CALL.
    template <typename Call>
    static std::uint16_t PortOf(int socket, Call call) {
        sockaddr_in address = {};
        socklen_t size = sizeof address;
        const bool isThere = call(socket, reinterpret_cast<sockaddr*>(&address), &size) == 0;
        return isThere && address.sin_family == AF_INET ? ntohs(address.sin_port)
                                                        : std::uint16_t{0};
    }
    // A number may become another file's; this does not.
    static std::string FileOf(int number) {
        char name[64];
        const std::string link = "/proc/self/fd/" + std::to_string(number);
        const ssize_t length = readlink(link.c_str(), name, sizeof name);
        return std::string(name, length > 0 ? static_cast<std::size_t>(length) : 0);
    }
    // The number whose peer is this client: two clients of different servers may have the same
    // port.
    bool FindServersEnd() {
        constexpr int kMost = 128;
        const std::uint16_t ownPort = PortOf(descriptor.Get(), getsockname);
        for (int candidate = 0; candidate < kMost; ++candidate) {
            if (PortOf(candidate, getpeername) == ownPort &&
                PortOf(candidate, getsockname) == serversPort) {
                serversEnd = candidate;
                serversFile = FileOf(candidate);
                return true;
            }
        }
        return false;
    }
    // Whether the server has its end open.
    bool IsServed() const { return serversEnd != -1 && FileOf(serversEnd) == serversFile; }
    void Leave(bool reset) {
        if (!descriptor.IsOpen()) return;
        if (reset) {
            const linger now = {1, 0};
            setsockopt(descriptor.Get(), SOL_SOCKET, SO_LINGER, &now, sizeof now);
        }
        descriptor = frameworks::UniqueDescriptor();
        Require(Comes([this] { return !IsServed(); }), "a server notices that a client has left");
    }
    // Whether the end has come.
    bool ReadWhatIsThere() {
        char bytes[4096];
        for (;;) {
            const ssize_t length = recv(descriptor.Get(), bytes, sizeof bytes, 0);
            if (length == -1 && (errno == EAGAIN || errno == EINTR)) return false;
            if (length <= 0) return true;
            for (const char byte : std::string_view(bytes, static_cast<std::size_t>(length))) {
                bars += byte == '|' ? 1 : 0;
            }
            received.append(bytes, static_cast<std::size_t>(length));
        }
    }

    frameworks::UniqueDescriptor descriptor;
    const std::uint16_t serversPort;
    int serversEnd = -1;
    std::string serversFile;
    std::string received;
    std::size_t bars = 0;
};
