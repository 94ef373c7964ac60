#include "commands/CommandTable.h"

#include "commands/CommandHandler.h"
#include "core/Helpers.h"

bool RunCommand(const CommandFamily& family, const Words& words, Status& status) {
    for (const Command* command = family.rows; command != family.rows + family.count; ++command) {
        if (!Helpers::str_prefix(command->name, words[0])) {
            continue;
        }
        const bool accepted =
            command->arguments == kAnyNumberOfArguments ||
            CommandHandler::CheckArguments(static_cast<int>(words.size()), command->arguments);
        status = accepted ? command->handler(words) : Status::kSyntaxError;
        return true;
    }
    return false;
}
