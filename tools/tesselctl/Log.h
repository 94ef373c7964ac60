// "tesselctl log": shows, follows and switches on the log file of the service.
//
// The service writes ~/tesselLog.txt only when the file is there at its start, and never makes it.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace tesselctl {

struct LogRequest {
    bool follow = false;
    bool enable = false;
    std::optional<std::size_t> lines = 20;  // nothing for all of them
};

std::string LogFilePath(const std::string& home);

// kExitSuccess, or kExitNegative when there is no log to show or the file could not be made.
int ShowLog(const std::string& home, const LogRequest& request);

}  // namespace tesselctl
