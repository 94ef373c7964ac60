#include "net/AppsCommunicationServer.h"

#include "commands/CommandHandler.h"

Status AppsCommunicationServer::handleCommand(int client, std::wstring& message) {
    return CommandHandler::HandleCommandFromSocket(message, client);
}

bool AppsCommunicationServer::isCommandServer() const {
    return false;
}

std::string AppsCommunicationServer::name() const {
    return "Apps Communication Server";
}
