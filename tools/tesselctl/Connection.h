// One connection to one port of the service on this machine.
//
// Bytes go out whole or not at all as far as the caller can tell, and come in as messages. Nothing
// here raises SIGPIPE, is disturbed by signals, or waits longer than it is told to.
//
// Owner: whoever opened it; move-only, closes its socket when it goes. Threads: one at a time.
// Failure: a status, never an exception; after anything but a message or a time-out the connection
// is of no more use.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "tesselctl/Deadline.h"
#include "tesselctl/Descriptor.h"
#include "tesselctl/Limits.h"
#include "tesselctl/MessageReader.h"

namespace tesselctl {

enum class ReadStatus {
    kMessage,
    kClosed,
    kTimedOut,
    kInterrupted,
    kTooLong  // no end of a message within more bytes than any message of the service has
};

struct Incoming {
    ReadStatus status;
    Message message;
};

enum class ConnectStatus { kRefused, kTimedOut, kInterrupted, kFailed };

struct ConnectFailure {
    ConnectStatus status;
    int error;  // errno of kFailed
};

class Connection {
  public:
    // Connects to 127.0.0.1.
    static std::variant<Connection, ConnectFailure> Open(int port, Deadline deadline,
                                                         const Interruption& interruption);

    // Sends all of it; anything but kMessage is a failure.
    ReadStatus Send(std::string_view bytes, Deadline deadline, const Interruption& interruption);

    Incoming Read(Deadline deadline, const Interruption& interruption);

    // The bytes that have come, as they are, in the text of a message; for whoever does not want
    // them taken apart. It may be used from any point between two messages on.
    Incoming ReadBytes(Deadline deadline, const Interruption& interruption);

    // Says that nothing more will be sent and waits until the service has closed its side too; true
    // when it has. So the service has read everything and has forgotten this client before the next
    // one knocks. What still arrives goes to `late`.
    bool Finish(Deadline deadline, const std::function<void(const Message&)>& late);

    // To be polled for reading; Read() with Deadline::Now() then takes what is there.
    int PollDescriptor() const { return socket.Get(); }

    // The beginning of a message whose end has not come.
    std::string_view Pending() const { return reader.Pending(); }

  private:
    explicit Connection(Descriptor connected) : socket(std::move(connected)) {}

    // Takes over what has come or waits for it; kMessage when there may be something now.
    ReadStatus Receive(Deadline deadline, const Interruption& interruption);

    Descriptor socket;
    MessageReader reader;
    bool closed = false;  // the peer has; messages read before may still be waiting
};

}  // namespace tesselctl
