#include "commands/CommandHandler.h"

#include <utility>

#include "commands/ChannelCommands.h"
#include "commands/GeneralCommands.h"
#include "core/Helpers.h"
#include "core/PerThread.h"

const wchar_t* const CommandHandler::commonUserDir = L"/Users/Shared/Velto/";

namespace {

std::wstring& ReplyOfThisThread() {
    struct Tag;
    return PerThread<std::wstring, Tag>();
}

Status Refuse(const char* reason) {
    Helpers::logprint(reason);
    return Status::kSyntaxError;
}

}  // namespace

std::wstring CommandHandler::GetReply() {
    return std::exchange(ReplyOfThisThread(), std::wstring());
}

void CommandHandler::SetReply(const std::wstring& text) {
    ReplyOfThisThread() = text;
}

bool CommandHandler::CheckArguments(int wordCount, int expected) {
    if (wordCount == expected + 1) {
        return true;
    }
    Helpers::logprintf("Wrong number of arguments, expected: %d", expected);
    return false;
}

Status CommandHandler::HandleCommand(std::wstring& message) {
    const Words words = Helpers::splitCommand(message);
    if (words.empty()) {
        return Refuse("No command found.");
    }
    Status status = Status::kSuccess;
    if (RunGeneralCommand(words, status) || HandleNativeSpecificCommand(words, status)) {
        return status;
    }
    return Refuse("Unknown command");
}

bool CommandHandler::HandleNativeSpecificCommand(Words words, Status& status) {
    if (words.size() < 2) {
        status = Refuse("No valid command found.");
    }
    return false;
}

Status CommandHandler::HandlePressureCommand(std::wstring& message) {
    const Words words = Helpers::splitCommand(message);
    return Refuse(words.empty() ? "No command found." : "Unknown command");
}

Status CommandHandler::HandleCommandFromSocket(std::wstring& message, int socket) {
    const Words words = Helpers::splitCommand(message);
    if (words.empty()) {
        return Refuse("No command found.");
    }
    return RunChannelCommand(words, socket);
}

void CommandHandler::FreeChannel(int socket) {
    ForgetChannel(socket);
}
