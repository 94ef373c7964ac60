// What the service can do to files and programs on a client's behalf. All members are static and
// belong to the thread that handles commands.
#pragma once

#include <string>

class ProcessManager {
  public:
    ProcessManager() = delete;

    // False only when PATH certainly does not exist: a path that cannot be looked at counts as
    // existing.
    static bool CheckFileExists(const std::wstring& path);
    // Whether PATH begins with ROOT and has no ".." in it. Nothing is normalised.
    static bool IsSubPath(const std::wstring& path, const std::wstring& root);
    // Lets everybody read and write PATH, and execute (or search) it with EXECUTABLE. False when
    // the system refuses.
    static bool FixPermissions(const std::wstring& path, bool executable);
};
