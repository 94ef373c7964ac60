// The file in which a service publishes its ports and its pass key, fresh at every start.
//
// Its form is fixed: seven lines, one element each. It is checked line by line, so that a file that
// is cut off, damaged or somebody else's is told apart from a service that is not there.
#pragma once

#include <string>
#include <string_view>

#include "tesselctl/Commands.h"
#include "tesselctl/Problem.h"

namespace tesselctl {

struct KeyFile {
    // As written: 1..65535, or -1 for a port that the service could not open.
    int commandPort = -1;
    int pressurePort = -1;
    int appsPort = -1;
    std::string key;  // with its braces

    int PortOf(Server server) const;
    bool operator==(const KeyFile& other) const {
        return commandPort == other.commandPort && pressurePort == other.pressurePort &&
               appsPort == other.appsPort && key == other.key;
    }
};

std::string KeyFilePath(const std::string& home);

// `path` only names the file in the problem's text (kKeyFileDamaged).
Result<KeyFile> ParseKeyFile(std::string_view text, const std::string& path);

// kNoKeyFile, kKeyFileUnreadable or kKeyFileDamaged.
Result<KeyFile> ReadKeyFile(const std::string& path);

}  // namespace tesselctl
