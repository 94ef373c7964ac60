#include "net/AppsCommunicationServer.h"

#include "commands/CommandHandler.h"
#include "core/Helpers.h"
#include "net/Outbox.h"

Status AppsCommunicationServer::handleCommand(int client, std::wstring& message) {
    return CommandHandler::HandleCommandFromSocket(message, client);
}

bool AppsCommunicationServer::isCommandServer() const {
    return false;
}

std::string AppsCommunicationServer::name() const {
    return "Apps Communication Server";
}

void AppsCommunicationServer::deinit(bool closeServer) {
    if (currentClient != kNobody) {
        CommandHandler::FreeChannel(currentClient);
    }
    Server::deinit(closeServer);
}

int AppsCommunicationServer::sendToChannel(int socket, const std::string& bytes) {
    return Outbox::Send(socket, bytes) < 0 ? -1 : 0;
}

int AppsCommunicationServer::logAndSend(int socket, const std::string& message) {
    Helpers::logprint(message);
    return sendToChannel(socket, message);
}

int AppsCommunicationServer::broadcastRegisteredChannel(int socket, const std::wstring& name) {
    return logAndSend(socket, "BroadcastRegisteredChannel=" + Frame(name));
}

int AppsCommunicationServer::broadcastUnRegisteredChannel(int socket, const std::wstring& name) {
    return logAndSend(socket, "BroadcastUnRegisteredChannel=" + Frame(name));
}

int AppsCommunicationServer::sendDataToChannel(int socket, const std::wstring& channel,
                                               const std::wstring& data) {
    return logAndSend(
        socket, "ForwardDataToChannel " + Helpers::wstringToString(channel) + " " + Frame(data));
}
