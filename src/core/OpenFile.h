// Opens a file by its name, and nothing else that may lie there: a FIFO would keep the service
// waiting for as long as nobody is at its other end.
//
// For any thread. FLAGS are open(2)'s, without O_CREAT, and MODE is fopen's for the same purpose.
// What is opened is not inherited by programs that the service starts. Empty, with errno, when it
// cannot be opened; EINVAL for what is no regular file.
#pragma once

#include <string>

#include "core/Owners.h"

FileOwner OpenFile(const std::string& path, int flags, const char* mode);
