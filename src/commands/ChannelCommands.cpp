#include "commands/ChannelCommands.h"

#include <algorithm>
#include <map>

#include "commands/CommandHandler.h"
#include "commands/CommandTable.h"
#include "core/ConvertUTF.h"
#include "core/Helpers.h"
#include "net/ConnectionManager.h"

namespace {

// From a client's socket number to its channel's name, as UTF-8.
using ChannelMap = std::map<int, std::string>;

ChannelMap& Channels() {
    static ChannelMap& channels = *new ChannelMap();
    return channels;
}

AppsCommunicationServer& TheServer() {
    return *ConnectionManager::GetAppsCommunicationServer();
}

Status RegisterChannel(const UTF8Words& words, int socket) {
    ChannelMap& channels = Channels();
    channels.erase(socket);
    for (const auto& channel : channels) {
        TheServer().broadcastRegisteredChannel(channel.first, words[1]);
    }
    channels[socket] = std::string(words[1]);
    CommandHandler::SetReply(L"ChannelRegistered=true");
    return Status::kSuccess;
}

// Sends DATA from the client SOCKET to the first channel called NAME. False when it did not get
// there.
bool SendToChannel(int socket, std::string_view name, std::string_view data) {
    const ChannelMap& channels = Channels();
    const auto sender = channels.find(socket);
    auto target = channels.end();
    if (sender == channels.end()) {
        Helpers::logprint("HandleCommandFromSocket::sendDataToChannel - caller not registered");
    } else {
        target = std::find_if(channels.begin(), channels.end(),
                              [&](const auto& channel) { return channel.second == name; });
    }
    if (target == channels.end()) {
        Helpers::logprint("HandleCommandFromSocket::sendDataToChannel - can not find target");
        return false;
    }
    Helpers::logprintf("HandleCommandFromSocket::sendDataToChannel  sender %s",
                       Helpers::utf8ToString(sender->second));
    Helpers::logprintf("HandleCommandFromSocket::sendDataToChannel  receiver %s",
                       Helpers::utf8ToString(target->second));
    return TheServer().sendDataToChannel(target->first, sender->second, data) == 0;
}

Status SendDataToChannel(const UTF8Words& words, int socket) {
    const bool sent = SendToChannel(socket, words[1], words[2]);
    CommandHandler::SetReply((sent ? L"DataSentToChannel=" : L"DataSentToChannelError=") +
                             UTF32FromUTF8(words[3]));
    return Status::kSuccess;
}

constexpr CommandRow<UTF8Words, int> kRows[] = {
    {"registerChannel", 1, RegisterChannel},
    {"sendDataToChannel", 3, SendDataToChannel},
};

}  // namespace

Status RunChannelCommand(const UTF8Words& words, int socket) {
    Status status = Status::kSuccess;
    RunCommand(kRows, words, status, socket);
    return status;
}

void ForgetChannel(int socket) {
    ChannelMap& channels = Channels();
    const auto found = channels.find(socket);
    if (found == channels.end()) {
        return;
    }
    const std::string name = found->second;
    channels.erase(found);
    for (const auto& channel : channels) {
        TheServer().broadcastUnRegisteredChannel(channel.first, name);
    }
}
