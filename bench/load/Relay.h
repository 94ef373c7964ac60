// How a message gets from one client of a server to others: what its clients do on new connections,
// what the sender says, and what then comes out where. A new server is a class here.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "load/Connection.h"
#include "support/Options.h"

class Relay {
  public:
    Relay() = default;
    Relay(const Relay&) = delete;
    Relay& operator=(const Relay&) = delete;
    virtual ~Relay() = default;

    virtual int Port() const = 0;
    // Takes a new connection to where it gets what the sender sends.
    virtual void GreetReceiver(const Connection& receiver) = 0;
    // Takes one to where it may send, with all RECEIVERS there; has them read what they were told.
    virtual void GreetSender(const Connection& sender,
                             const std::vector<Connection>& receivers) = 0;

    // These hold from GreetSender on.
    const std::string& Request() const { return request; }
    // What every receiver gets.
    const std::string& Forwarded() const { return forwarded; }
    // What the sender gets.
    const std::string& Answer() const { return answer; }

  protected:
    std::string request;
    std::string forwarded;
    std::string answer;
};

// By the options --dialect NAME, --size BYTES of data, and --port PORT or --key-file PATH:
// channel: the service, data sent to a channel
// registration: the service, a channel registered, which all others are told
// bare-channel, bare-registration: the yardstick, with the service's words
// redis, mosquitto, dbus
std::unique_ptr<Relay> RelayFrom(const Options& options);
