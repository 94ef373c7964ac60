// The server through which small applications send data to each other. Clients connect without a
// key. Runs on the main thread.
#pragma once

#include "net/Server.h"

class AppsCommunicationServer : public Server {
  public:
    Status handleCommand(int client, std::wstring& message) override;
    bool isCommandServer() const override;
    std::string name() const override;
};
