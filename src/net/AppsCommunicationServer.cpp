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

int AppsCommunicationServer::logAndSend(int socket, const std::wstring& text) {
    const std::string framed = Frame(text);
    Helpers::logprint(framed);
    return sendToChannel(socket, framed);
}

int AppsCommunicationServer::broadcastRegisteredChannel(int socket, const std::wstring& name) {
    return logAndSend(socket, L"BroadcastRegisteredChannel=" + name);
}

int AppsCommunicationServer::broadcastUnRegisteredChannel(int socket, const std::wstring& name) {
    return logAndSend(socket, L"BroadcastUnRegisteredChannel=" + name);
}

int AppsCommunicationServer::sendDataToChannel(int socket, const std::wstring& channel,
                                               const std::wstring& data) {
    return logAndSend(socket, L"ForwardDataToChannel " + channel + L" " + data);
}
