#include "commands/ApplicationCommands.h"

#include "commands/CommandHandler.h"

Status ReplyWithId(const wchar_t* key, const Words& words) {
    CommandHandler::SetReply(words.size() > 1 ? key + words[1] : key);
    return Status::kSuccess;
}
