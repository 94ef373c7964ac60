// As much of MQTT 3.1.1 as the measurements speak.
#pragma once

#include <string>

#include "load/Connection.h"

namespace mqtt {

// Takes a new connection to where it may publish and subscribe.
void Enter(const Connection& connection);
void Subscribe(const Connection& connection, const std::string& topic);
// A message of quality of service 0. It comes back from the broker as it is sent.
std::string Publication(const std::string& topic, const std::string& payload);

}  // namespace mqtt
