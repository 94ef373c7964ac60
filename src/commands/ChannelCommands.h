// The commands by which small applications register named channels and send data to each other.
//
// All functions belong to the main thread. A client has one channel at the most; names need not be
// unique.
#pragma once

#include "commands/Status.h"
#include "commands/UTF8Words.h"

// Runs WORDS for the client SOCKET. Words that are no channel command do nothing and succeed.
Status RunChannelCommand(const UTF8Words& words, int socket);

// The client SOCKET goes: its channel, if it has one, is forgotten and the others are told.
void ForgetChannel(int socket);
