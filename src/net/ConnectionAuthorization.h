// The pass key of this run, the file that tells the dock about it and about the ports, and the
// check of what a client presents. All members are static and belong to the main thread.
//
// The file is "tesselAuth.key" in the user's support folder, which only the user can enter when the
// service has made it. It is a new one at every start, whole or not there, and the user's alone:
//
//     <?xml version="1.0" encoding="UTF-8"?> LF
//     <root> LF
//     TAB <commandPort>PORT</commandPort> LF      -1 for a port that could not be opened
//     TAB <pressurePort>PORT</pressurePort> LF
//     TAB <airAppsPort>PORT</airAppsPort> LF
//     TAB <authKey>KEY</authKey> LF               a UUID in braces, new at every start
//     </root> LF
//
// with one blank before every line feed.
#pragma once

#include <string>

class ConnectionAuthorization {
  public:
    ConnectionAuthorization() = delete;

    static void GeneratePassKey();
    // The key, made on first use.
    static std::string GetPassKey();
    // What mkdir says; a folder that exists already is an error here, and none to the callers.
    static int CreateDirIfNeeded(const std::string& path);
    // Publishes key and ports, in a file that is whole whenever somebody reads it. When it cannot
    // be written the one before stays and the service runs on, but nobody can learn the key.
    static void WritePassKeyAndPortsFile(int commandPort, int pressurePort, int airAppsPort);
    // Whether MESSAGE is "auth" and the key. Until a key has been made, nothing is.
    static bool IsAuthorizationOk(const std::wstring& message);
};
