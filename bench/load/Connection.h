// A blocking TCP connection to 127.0.0.1 without delay. Every wait ends after some seconds, and a
// server that closes or stays silent ends the measurement.
#pragma once

#include <cstddef>
#include <string>

#include "support/Descriptor.h"

// Whether somebody accepts connections on PORT.
bool IsListening(int port);

class Connection {
  public:
    explicit Connection(int port);

    void Send(const std::string& bytes) const { Send(bytes.data(), bytes.size()); }
    void Send(const char* bytes, std::size_t length) const;
    // At least one byte, at most ROOM.
    std::size_t ReceiveSome(char* bytes, std::size_t room) const;
    void Receive(char* bytes, std::size_t length) const;
    std::string Receive(std::size_t length) const;
    // Up to and with the first END.
    std::string ReceiveUntil(char end) const;

  private:
    Descriptor socket;
};
