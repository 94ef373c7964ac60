#include "net/PressureServer.h"

#include "commands/CommandHandler.h"

int PressureServer::replyCursor(const std::wstring& text) {
    for (const int connection : connections) {
        reply(text, connection);
    }
    return 0;
}

int PressureServer::serverCallBack(CFSocketRef socket, CFSocketCallBackType type, CFDataRef address,
                                   const void* data, void* info) {
    if (type == kCFSocketAcceptCallBack) {
        connections.push_back(*static_cast<const CFSocketNativeHandle*>(data));
    }
    return Server::serverCallBack(socket, type, address, data, info);
}

Status PressureServer::handleCommand(int /*client*/, std::wstring& message) {
    return CommandHandler::HandlePressureCommand(message);
}

bool PressureServer::isCommandServer() const {
    return false;
}

std::string PressureServer::name() const {
    return "Pressure Server";
}
