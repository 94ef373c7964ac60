// Becoming the authorized client of the command server.
//
// The service talks to one authorized client at a time. While there is one, it closes every further
// connection unread; a connection that shows a wrong key it closes as well. The two look alike, so
// after such an end another connection is opened and nothing is sent on it: a busy service closes
// it at once, a free one leaves it open, and then the key is shown on it once more, because the
// other client may have gone in between. A client that was authorized between our connection and
// our key shows too: the service then answers the key as if it were a command.
#pragma once

#include <optional>
#include <string>

#include "tesselctl/Connection.h"
#include "tesselctl/Limits.h"

namespace tesselctl {

enum class HandshakeStatus {
    kAuthorized,
    kNobodyListens,
    kBusy,
    kRefused,  // the service is there and free, and it does not know the key
    kSilent,   // connected, and no answer in time
    kForeign,  // an answer that the service would not give
    kInterrupted,
    kCannotConnect
};

struct Handshake {
    HandshakeStatus status;
    std::optional<Connection> connection;  // of kAuthorized
    std::string said = {};                 // of kForeign: the beginning of what came instead
    int error = 0;                         // of kCannotConnect: errno
};

Handshake Authorize(int port, const std::string& key, const Limits& limits);

}  // namespace tesselctl
