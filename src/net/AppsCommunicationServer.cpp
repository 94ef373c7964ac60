#include "net/AppsCommunicationServer.h"

#include "commands/CommandHandler.h"
#include "core/ASCII.h"
#include "core/Helpers.h"
#include "net/Outbox.h"

namespace {

// Appends what UTF8 is on the wire. A block at a time, that is read twice while the processor has
// it at hand.
void AppendNarrowed(std::string_view utf8, std::string& text) {
    constexpr std::size_t kBlock = 4096;
    while (!utf8.empty()) {
        const std::string_view block = utf8.substr(0, kBlock);
        if (!IsASCII(block)) {
            // All before was ASCII, so no character is cut here.
            text += Helpers::utf8ToString(utf8);
            return;
        }
        text.append(block);
        utf8.remove_prefix(block.size());
    }
}

// PIECES, which are UTF-8, as they go over the wire together.
std::string Framed(std::initializer_list<std::string_view> pieces) {
    std::size_t size = 1;
    for (const std::string_view piece : pieces) {
        size += piece.size();
    }
    std::string text;
    text.reserve(size);
    for (const std::string_view piece : pieces) {
        AppendNarrowed(piece, text);
    }
    text.push_back(Server::kTerminator);
    return text;
}

}  // namespace

Status AppsCommunicationServer::handleCommand(int client, const std::string& message) {
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

int AppsCommunicationServer::logAndSend(int socket,
                                        std::initializer_list<std::string_view> pieces) {
    return sendToChannel(socket, Helpers::logprintUtf8(Framed(pieces)));
}

int AppsCommunicationServer::broadcastRegisteredChannel(int socket, std::string_view name) {
    return logAndSend(socket, {"BroadcastRegisteredChannel=", name});
}

int AppsCommunicationServer::broadcastUnRegisteredChannel(int socket, std::string_view name) {
    return logAndSend(socket, {"BroadcastUnRegisteredChannel=", name});
}

int AppsCommunicationServer::sendDataToChannel(int socket, std::string_view channel,
                                               std::string_view data) {
    return logAndSend(socket, {"ForwardDataToChannel ", channel, " ", data});
}
