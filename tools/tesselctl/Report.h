// How the outcome of a command is told: its text on standard output, a complaint on standard error,
// an exit status.
#pragma once

#include <string_view>

#include "tesselctl/Answer.h"
#include "tesselctl/Problem.h"

namespace tesselctl {

// `command` names it in complaints. The exit status of the outcome.
int Report(const Result<Answer>& outcome, std::string_view command);

}  // namespace tesselctl
