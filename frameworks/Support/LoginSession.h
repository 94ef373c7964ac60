// Who sits at the machine, as logind tells.
//
// Backed by libsystemd's sd-login, which is loaded when somebody asks on a machine where logind
// runs, and not otherwise. Threads: any. Failure: without logind, or without the library, nothing
// is known.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "Support/Proc.h"

namespace frameworks {

struct LoginSession {
    std::string id;
    uid_t user;
    // Somebody has logged in, other than in the session of a login screen.
    bool isPersons;
    // On a graphical display, not a text terminal.
    bool isGraphical;
};

struct SeatState {
    // Whether logind knows the seat; without it, somebody may be there all the same.
    bool isKnown = false;
    // The one that is on the screen.
    std::optional<LoginSession> session;
};

// Of seat0, the machine's own screen and keyboard.
SeatState ActiveSessionOfTheSeat();

// The process that logind began the session with.
std::optional<ProcessStatus> LeaderOf(const LoginSession& session);

}  // namespace frameworks
