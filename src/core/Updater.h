// Replaces the service's own program by one that the dock has downloaded, after the servers are
// down.
//
// All members are static and belong to the main thread. A failed update leaves the old program in
// place.
#pragma once

#include <string>

class Updater {
  public:
    Updater() = delete;

    // The folder with the downloaded update.
    static void SetUpdatePath(const std::wstring& path);
    // True when an update was asked for, the user is an administrator, and the script that installs
    // it has been run.
    static bool TryInstallUpdate();
    // Installs an update that was asked for and starts the new program in place of this one;
    // returns when there is none.
    static void CheckAndHandleUpdates();

    // Whether the dock has asked for an update.
    static bool updateRequested;
};
