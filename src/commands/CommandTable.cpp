#include "commands/CommandTable.h"

#include "commands/CommandHandler.h"

bool HasArguments(int arguments, std::size_t wordCount) {
    return arguments == kAnyNumberOfArguments ||
           CommandHandler::CheckArguments(static_cast<int>(wordCount), arguments);
}
