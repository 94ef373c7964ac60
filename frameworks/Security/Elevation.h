// Runs a tool as root, after whoever may allow it has been asked.
//
// The tool runs in the folder in which this process is.
//
// pkexec asks through the desktop's own dialog, which names the tool. sudo asks through the askpass
// program, if there is one, and not at all where it need not. Its exit status tells a refusal from
// nothing that the tool might end with, so there the tool is started by a shell that first writes
// one line.
//
// Owner: the caller, who has to wait for the child. Threads: any. Failure: a status of
// Authorization Services.
#pragma once

#include <CarbonCore/MacTypes.h>
#include <sys/types.h>

#include <string>
#include <vector>

#include "Support/UniqueDescriptor.h"

namespace frameworks {

struct ElevatedTool {
    pid_t child = -1;
    // What the tool prints.
    UniqueDescriptor output;
};

// Whether nobody needs to be asked, or somebody can be.
bool CanElevate();

// The first of the WORDS is the tool's path. Returns when the tool has printed something, or has
// ended.
OSStatus RunElevated(const std::vector<std::string>& words, ElevatedTool& tool);

}  // namespace frameworks
