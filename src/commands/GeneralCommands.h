// The commands about the service, the user and the system.
#pragma once

#include "commands/CommandTable.h"

// False when WORDS are none of them; otherwise STATUS is what became of the command. Main thread.
bool RunGeneralCommand(const Words& words, Status& status);
