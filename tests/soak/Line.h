// One connection to the service that never waits by itself: what the other side does not take is
// kept, and what has come is handed out message by message. One thread.
#pragma once

#include <optional>
#include <string>

#include "support/Descriptor.h"

// How a client goes.
enum class Farewell { kClose, kReset, kHalfClose };

class Line {
  public:
    Line() = default;
    explicit Line(Descriptor itsSocket) : socket(std::move(itsSocket)) {}

    // False when the connection has ended.
    bool Send(const std::string& bytes);
    bool HasMoreToSend() const { return !unsent.empty(); }
    bool SendTheRest();
    // Takes in all that has come. False when nothing more will.
    bool Read();
    // Waits for that long at the most until there is something to read.
    void WaitForInput(int milliseconds) const;

    // One message, without its bar.
    std::optional<std::string> Next();
    // All that has come and was not handed out, for streams with other frames.
    std::string& Input();

    int Number() const { return socket.Get(); }
    void Reset();
    void Close() { socket.Close(); }
    void ShutDownSending();

  private:
    Descriptor socket;
    std::string unsent;
    std::string input;
    std::size_t taken = 0;
};
