// Removes the service when the dock, for which it works, is no longer installed.
//
// All members are static and belong to the main thread, before the servers exist.
#pragma once

class UninstallManager {
  public:
    UninstallManager() = delete;

    // Runs the script that removes the service; whether that went well.
    static bool UninstallCore();
    // Without the dock, an administrator's service removes itself and ends the process.
    static void UninstallIfDockMissing();
};
