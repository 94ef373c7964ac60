// A process's end of the pen-event socket, for tests: it posts what it is told to, sense or
// nonsense.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "CoreGraphics/PenEventRecord.h"
#include "Support/UniqueDescriptor.h"

class PenPoster {
  public:
    // Listens in the name of POSTER, which is the calling process unless the test lies.
    explicit PenPoster(pid_t poster = getpid(), int backlog = 8)
        : listener(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
        const penEvents::Address address = penEvents::AddressOf(poster);
        listens = bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address.name),
                       address.length) == 0 &&
                  listen(listener.Get(), backlog) == 0;
    }

    bool Listens() const { return listens; }
    // Waits for the next tap.
    void Accept() {
        tap = frameworks::UniqueDescriptor(
            accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        ASSERT_TRUE(tap.IsOpen());
    }

    bool Post(const std::string& packet) {
        ssize_t sent = -1;
        do {
            sent = send(tap.Get(), packet.data(), packet.size(), MSG_NOSIGNAL);
        } while (sent == -1 && errno == EINTR);
        return sent == static_cast<ssize_t>(packet.size());
    }
    bool Post(const penEvents::Record& record) {
        return Post(std::string(reinterpret_cast<const char*>(&record), sizeof record));
    }

    void HangUp() { tap.Close(); }
    int Tap() const { return tap.Get(); }

  private:
    frameworks::UniqueDescriptor listener;
    frameworks::UniqueDescriptor tap;
    bool listens = false;
};

inline penEvents::Record PenEvent(std::uint32_t type, double x = 0, double y = 0,
                                  double pressure = 0, std::int64_t pointerType = 1,
                                  std::int64_t enterProximity = 1) {
    return {penEvents::kVersion, type, x, y, pressure, pointerType, enterProximity};
}
