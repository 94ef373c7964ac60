// The exit statuses of tesselctl. They are documented in the man page and scripts rely on them.
#pragma once

#include "tesselctl/Problem.h"

namespace tesselctl {

enum ExitStatus : int {
    kExitSuccess = 0,
    kExitNegative = 1,  // the service answered Failure, False or IconMissing, or it is not as asked
    kExitSyntaxError = 2,  // the service did not understand the command
    kExitNoService = 3,    // there was no answer to be had
    kExitUsage = 64,       // tesselctl itself was called wrongly (EX_USAGE of sysexits.h)
    kExitOutput = 74       // its output, or the file asked for, could not be written (EX_IOERR)
};

inline ExitStatus ExitStatusOf(const Problem& problem) {
    return problem.trouble == Trouble::kInexpressible ? kExitUsage : kExitNoService;
}

}  // namespace tesselctl
