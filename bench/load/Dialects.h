// The dialects that need more than a question and its answer.
#pragma once

#include <memory>

#include "load/Dialect.h"

// MQTT 3.1.1: a message of quality of service 0, published to a topic that the same client has
// subscribed to, comes back from the broker.
std::unique_ptr<Dialect> MakeMosquittoDialect(int port);

// D-Bus over TCP: the method call Ping to the daemon itself.
std::unique_ptr<Dialect> MakeDbusDialect(int port);
