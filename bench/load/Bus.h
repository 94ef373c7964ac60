// As much of D-Bus as the measurements speak.
#pragma once

#include <cstddef>
#include <string>

#include "load/Connection.h"

namespace bus {

constexpr char kCall = 1;
constexpr char kReturn = 2;

struct Message {
    char type;
    // All of it, with header and body.
    std::string bytes;
};

Message Take(const Connection& connection);
// Takes a new connection to where it may call; its name on the bus.
std::string Enter(const Connection& connection);
// A method call to the daemon itself. The serial may be the same every time: the daemon only hands
// it back.
std::string CallDaemon(const std::string& interface, const std::string& member);
// A method call with a text that is not to be answered.
std::string Tell(const std::string& whom, const std::string& text);

}  // namespace bus
