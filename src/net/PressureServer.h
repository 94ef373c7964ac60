// The server for pen data. Clients connect without a key. Runs on the pressure thread.
#pragma once

#include <deque>

#include "net/Server.h"

class PressureServer : public Server {
  public:
    // To every connection ever accepted, in the order of acceptance.
    int replyCursor(const std::wstring& text) override;
    int serverCallBack(CFSocketRef socket, CFSocketCallBackType type, CFDataRef address,
                       const void* data, void* info) override;
    Status handleCommand(int client, const std::string& message) override;
    bool isCommandServer() const override;
    std::string name() const override;

  private:
    // Only ever grows: a number that the system has given out twice stands here twice.
    std::deque<int> connections;
};
