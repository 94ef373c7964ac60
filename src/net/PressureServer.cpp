#include "net/PressureServer.h"

#include "commands/CommandHandler.h"
#include "core/ConvertUTF.h"

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

Status PressureServer::handleCommand(int /*client*/, const std::string& message) {
    std::wstring text = UTF32FromUTF8(message);
    return CommandHandler::HandlePressureCommand(text);
}

bool PressureServer::isCommandServer() const {
    return false;
}

std::string PressureServer::name() const {
    return "Pressure Server";
}
