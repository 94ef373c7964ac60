// The file in which the service publishes its ports and its pass key.
#pragma once

#include <optional>
#include <string>

struct KeyFile {
    int commandPort = 0;
    int pressurePort = 0;
    int airAppsPort = 0;
    std::string authKey;
};

// Nothing while the file is missing or not yet complete.
std::optional<KeyFile> ReadKeyFile(const std::string& path);
