// "tesselctl log": shows, follows and switches on the log file of the service.
//
// The service writes ~/tesselLog.txt only when the file is there at its start, and never makes it.
#pragma once

#include <string>

#include "tesselctl/LogRequest.h"

namespace tesselctl {

std::string LogFilePath(const std::string& home);

// kExitSuccess, or kExitNegative when there is no log to show or the file could not be made.
int ShowLog(const std::string& home, const LogRequest& request);

}  // namespace tesselctl
