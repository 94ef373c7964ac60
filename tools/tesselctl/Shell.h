// "tesselctl shell": one command a line, from a prompt or from a pipe.
//
// A line goes to the service as it was typed, in the service's own syntax for words. The
// connections stay open over the whole run, so pen data and channels work here. What the service
// sends unasked is shown at the prompt, each message on a line of its own behind an asterisk; from
// a pipe only the answers are printed.
#pragma once

#include <string>

#include "tesselctl/Limits.h"

namespace tesselctl {

// The exit status is that of the last command; at a prompt it is kExitSuccess.
int RunShell(const std::string& home, const std::string& userHome, const Limits& limits);

}  // namespace tesselctl
