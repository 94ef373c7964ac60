// The server through which small applications send data to each other. Clients connect without a
// key. Runs on the main thread.
#pragma once

#include <initializer_list>
#include <string_view>

#include "net/Server.h"

class AppsCommunicationServer : public Server {
  public:
    // Frees the current client's channel first.
    void deinit(bool closeServer) override;
    Status handleCommand(int client, const std::string& message) override;
    bool isCommandServer() const override;
    std::string name() const override;

    // One framed message to one channel's socket; 0, or -1 when it could not be sent. Names and
    // data are UTF-8.
    int broadcastRegisteredChannel(int socket, std::string_view name);
    int broadcastUnRegisteredChannel(int socket, std::string_view name);
    int sendDataToChannel(int socket, std::string_view channel, std::string_view data);
    // BYTES as they are.
    int sendToChannel(int socket, const std::string& bytes);

  private:
    int logAndSend(int socket, std::initializer_list<std::string_view> pieces);
};
