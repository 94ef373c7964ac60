// "tesselctl status": whether the service of a home runs, and what can be seen of it.
#pragma once

#include <string>

#include "tesselctl/Limits.h"

namespace tesselctl {

// Prints what there is to know; the exit status is kExitSuccess when the service runs, else
// kExitNoService. A service that is busy with another client runs, and so does one that does not
// answer but is the process behind its port.
int ShowStatus(const std::string& home, const Limits& limits);

}  // namespace tesselctl
