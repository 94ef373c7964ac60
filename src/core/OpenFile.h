// Opens a file by its name, and nothing else that may lie there: a FIFO would keep the service
// waiting for as long as nobody is at its other end.
//
// For any thread. FLAGS are open(2)'s and MODE is fopen's for the same purpose; RIGHTS are those of
// a file that FLAGS make. What is opened is not inherited by programs that the service starts.
// Empty, with errno, when it cannot be opened; EINVAL for what is no regular file.
#pragma once

#include <sys/types.h>

#include <string>

#include "core/Owners.h"

FileOwner OpenFile(const std::string& path, int flags, const char* mode, mode_t rights = 0);
