// A program of the sandbox, run to its end, with what it printed.
#pragma once

#include <string>
#include <vector>

#include "support/Sandbox.h"

struct ProgramRun {
    // -1 when a signal killed it.
    int status = -1;
    std::string output;
    std::string errors;
};

// The first argument is the program's path. Throws Failed when it does not end in time.
ProgramRun RunProgram(Sandbox& sandbox, const std::vector<std::string>& arguments,
                      const std::string& input = {}, Identity identity = Identity::kUser);
