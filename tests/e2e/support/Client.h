// One connection to the service, as a program that speaks its protocol sees it. Every wait has a
// deadline; what does not come, or comes where nothing may, throws Failed. One thread at a time.
#pragma once

#include <string>

#include "support/Descriptor.h"
#include "support/Sandbox.h"
#include "support/Waiting.h"

class Client {
  public:
    explicit Client(Descriptor connected);

    void Send(const std::string& bytes);
    // Not all bytes when the service closes the connection meanwhile: false then, and no failure.
    bool TrySend(const std::string& bytes);

    // One message, without its bar.
    std::string Receive(std::chrono::milliseconds patience = kPatience);
    std::string ReceiveExactBytes(std::size_t count);
    // The answer to one command, which is given without its bar.
    std::string Ask(const std::string& command);

    // The service has closed the connection, with nothing more said.
    void ExpectClosed();
    // Nothing comes and the connection stays open. The one place where waiting a fixed time is
    // right: nothing tells that something will not come.
    void ExpectSilence(std::chrono::milliseconds duration = std::chrono::milliseconds(150));

    // Until the service has read all that was sent, so that what is sent next arrives apart from
    // it.
    void WaitUntilRead(Sandbox& sandbox) const;
    std::size_t UnreadByService(Sandbox& sandbox) const;

    // Ends the connection with a reset, unread data or not.
    void Reset();
    void Close() { connection.Close(); }
    void ShutDownSending();

  private:
    bool Fill(const Deadline& deadline);

    Descriptor connection;
    std::string received;
    // Where in `received` the search for a bar goes on.
    std::size_t searched = 0;
    // What of `received` has been handed out.
    std::size_t taken = 0;
};
