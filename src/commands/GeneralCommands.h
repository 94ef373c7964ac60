// The commands about the service, the user and the system.
#pragma once

#include "commands/CommandTable.h"

extern const CommandFamily kGeneralCommands;
