#include "commands/CommandTable.h"

#include "commands/CommandHandler.h"
#include "core/Helpers.h"

bool IsCommand(const char* name, const Words& words) {
    return Helpers::str_prefix(name, words[0]);
}

bool HasArguments(int arguments, const Words& words) {
    return arguments == kAnyNumberOfArguments ||
           CommandHandler::CheckArguments(static_cast<int>(words.size()), arguments);
}
