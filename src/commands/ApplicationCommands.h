// The commands about applications: those made for Adobe AIR, and native ones.
//
// False when WORDS, of which there is at least one, are no command of the family; otherwise STATUS
// is what became of it: a failure is told by the key of the reply, not by the status. Main thread;
// installers are waited for.
#pragma once

#include "commands/CommandTable.h"

bool RunAirCommand(const Words& words, Status& status);
bool RunNativeCommand(const Words& words, Status& status);

// Leaves KEY and word 1 as the reply; just KEY when there is no word 1.
Status ReplyWithId(const wchar_t* key, const Words& words);
