// The server through which small applications send data to each other. Clients connect without a
// key. Runs on the main thread.
#pragma once

#include "net/Server.h"

class AppsCommunicationServer : public Server {
  public:
    // Frees the current client's channel first.
    void deinit(bool closeServer) override;
    Status handleCommand(int client, std::wstring& message) override;
    bool isCommandServer() const override;
    std::string name() const override;

    // One framed message to one channel's socket; 0, or -1 when it could not be sent.
    int broadcastRegisteredChannel(int socket, const std::wstring& name);
    int broadcastUnRegisteredChannel(int socket, const std::wstring& name);
    int sendDataToChannel(int socket, const std::wstring& channel, const std::wstring& data);
    // BYTES as they are.
    int sendToChannel(int socket, const std::string& bytes);

  private:
    int logAndSend(int socket, const std::string& message);
};
