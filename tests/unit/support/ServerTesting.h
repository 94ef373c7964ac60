// What the tests of the servers share: a client as it is outside, a connection as the connection
// manager makes it, and a server that shows its fields.
//
// Threads: a Peer may be used on any one thread; the rest belongs to the thread of the server.
// Nothing here waits longer than kPatience; a wait in vain is a failure of the test.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "commands/Status.h"
#include "core/ConvertUTF.h"
#include "core/Owners.h"
#include "net/Server.h"

// What a client hears when it has authorized: that the key is right, and which tablets are there.
constexpr std::string_view kGreeting = "authOk|CurrentAttachedDevices=|";

// A client of the port, in the test's hand.
class Peer {
  public:
    explicit Peer(int port);
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    ~Peer() { Close(); }

    void Send(std::string_view bytes) const;
    // LENGTH bytes; fewer when no more come.
    std::string Receive(std::size_t length) const;
    // Up to the next bar, which is left out.
    std::string ReceiveMessage() const;
    // Whether the greeting comes next.
    bool ReceiveGreeting() const { return Receive(kGreeting.size()) == kGreeting; }
    // Everything until the other side closes, and "<still open>" when it does not.
    std::string ReceiveTheRest() const;
    // Whether nothing has come that has not been received.
    bool HasNothing() const;
    // Whether the other side has closed by now, or does so in time.
    bool IsAtTheEnd() const;
    void Close();
    // Closes so that the other side gets an error instead of the end.
    void Reset();
    // Says goodbye but goes on receiving.
    void EndSending() const;

    int Socket() const { return socket; }

  private:
    int socket;
};

// A peer, and the socket that SERVER accepted for it.
class Connection {
  public:
    explicit Connection(Server& itsServer);

    // Whether the server wanted it; if not, its socket is closed.
    bool WasKept() const { return wasKept; }
    // Sends BYTES and lets the server receive them, all in one batch.
    Status Deliver(std::string_view bytes) const;
    // Lets the server receive whatever has happened to the connection.
    Status Receive() const;
    // Waits until that many bytes, or the end, can be received.
    void WaitForBytes(std::size_t count) const;
    bool IsOpen() const;

    Peer peer;
    int socket;

  private:
    Server& server;
    CFOwner<CFSocketRef> wrapper;
    bool wasKept;
};

// BASE with its fields in sight, and with commands of the test's own.
template <typename Base>
class Visible : public Base {
  public:
    using Base::authorized;
    using Base::authorizedClient;
    using Base::clientCount;
    using Base::clients;
    using Base::currentClient;
    using Base::pendingInput;
    using Base::port;
    using Base::serverSocket;

    // When there is one, it takes the place of the server's own commands.
    std::function<Status(int client, std::wstring& message)> onCommand;
    // The messages that came to be commands.
    std::vector<std::wstring> commands;

    Status handleCommand(int client, const std::string& message) override {
        std::wstring text = UTF32FromUTF8(message);
        commands.push_back(text);
        return onCommand ? onCommand(client, text) : Base::handleCommand(client, message);
    }
};
