// The tapping end of the pen-event socket, for tests: reads what the process that posts sends.
#pragma once

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <thread>

#include "PenTesting.h"
#include "driver/Descriptor.h"

class PenTap {
  public:
    // Waits until POSTER listens.
    explicit PenTap(pid_t poster, std::chrono::seconds patience = std::chrono::seconds(10)) {
        const auto deadline = std::chrono::steady_clock::now() + patience;
        do {
            Connect(poster);
        } while (!IsOpen() && std::chrono::steady_clock::now() < deadline);
    }

    bool IsOpen() const { return socket.IsOpen(); }
    int Get() const { return socket.Get(); }

    // One packet as it is; empty at the end, or when none comes.
    std::string ReadPacket(int milliseconds = 10000) const {
        pollfd state{socket.Get(), POLLIN, 0};
        if (poll(&state, 1, milliseconds) != 1) return std::string();
        char bytes[256];
        const ssize_t length = recv(socket.Get(), bytes, sizeof bytes, 0);
        return length <= 0 ? std::string() : std::string(bytes, static_cast<std::size_t>(length));
    }

    // Up to COUNT, or up to the end.
    pentest::Records Read(std::size_t count = SIZE_MAX) const {
        pentest::Records records;
        while (records.size() < count) {
            const std::string packet = ReadPacket();
            if (packet.empty()) break;
            EXPECT_EQ(packet.size(), sizeof(penEvents::Record));
            penEvents::Record record{};
            packet.copy(reinterpret_cast<char*>(&record), sizeof record);
            records.push_back(record);
        }
        return records;
    }

    void Close() { socket = driver::Descriptor(); }

  private:
    void Connect(pid_t poster) {
        driver::Descriptor made(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
        const penEvents::Address address = penEvents::AddressOf(poster);
        if (connect(made.Get(), reinterpret_cast<const sockaddr*>(&address.name), address.length) ==
            0) {
            socket = std::move(made);
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    driver::Descriptor socket;
};
