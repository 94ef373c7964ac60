// Opens what has a name, and keeps nobody waiting: opening a FIFO would for as long as nobody is at
// its other end. What is opened is not inherited by programs that the service starts.
//
// For any thread. FLAGS are open(2)'s; a signal does not end the call. Failure: errno.
#pragma once

#include <sys/types.h>

#include <string>

#include "core/Owners.h"

// The descriptor, which may be a FIFO's, or -1. MODE counts with O_CREAT.
int OpenWithoutWaiting(const std::string& path, int flags, mode_t mode = 0);

// A regular file, or nothing, with EINVAL when something else lies there. FLAGS are without
// O_CREAT, and MODE is fopen's for the same purpose.
FileOwner OpenFile(const std::string& path, int flags, const char* mode);
