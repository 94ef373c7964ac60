// The commands about pen data, for the pressure server and its thread.
#pragma once

#include "commands/CommandTable.h"

// False when WORDS are none of them; otherwise STATUS is what became of the command.
bool RunPressureCommand(const Words& words, Status& status);
