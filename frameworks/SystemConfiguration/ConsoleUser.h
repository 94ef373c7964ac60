// Finds out who is logged in at the machine's own screen.
//
// Threads: any. Failure: nobody.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "Support/LoginSession.h"

namespace frameworks {

struct ConsoleUser {
    std::string name;
    uid_t uid;
    gid_t gid;
};

// SEAT is what logind says, CONSOLE the device whose owner counts where logind knows nothing.
std::optional<ConsoleUser> FindConsoleUser(const SeatState& seat, const char* console);

}  // namespace frameworks
