// Shell scripts: their templates filled in, written to a file and run, with administrator rights
// where they are needed.
//
// All members are static, for the thread that handles commands; a run with administrator rights
// blocks it until the user has answered and the script has ended. Script files stay where they are
// and are overwritten by the next of their name. Paths are 8-bit and stand in single quotes without
// escaping; every "~" in a script becomes the user's home folder when the file is written. Failures
// are logged, and nobody runs a script that could not be written: under its name there may be an
// older one that does something else.
#pragma once

#include <string>

class Scripts {
  public:
    Scripts() = delete;

    static const char* const coreUpdateScript;
    static const char* const coreUninstallScript;
    static const char* const rmDirectoryScript;
    static const char* const installAirAppScript;
    static const char* const upgradeAirAppScript;

    // True when the service cannot give PATH to the group "admin" by itself. When it can, it has.
    static bool RequiresElevation(const std::string& path);
    // Writes a script file that everybody may run. False when it cannot be created.
    static bool GenerateScriptFile(const std::string& path, const std::string& script);
    // Starts a script and returns; what becomes of it is not observed.
    static bool StartScript(const std::string& path);
    // Writes the script to the temporary folder and runs it. True when an elevated script ended
    // with 0, or a plain one has been started.
    static bool WriteAndRunScript(const std::string& name, const std::string& script,
                                  bool elevated);

    static bool GenerateRemoveDirectoryScriptFile(const std::string& scriptPath,
                                                  const std::string& folder);
    static bool GenerateInstallAirAppScriptFile(const std::string& scriptPath,
                                                const std::string& installer,
                                                const std::string& arguments);
    static bool GenerateUpgradeAirAppScriptFile(const std::string& scriptPath,
                                                const std::string& oldFolder,
                                                const std::string& installer,
                                                const std::string& arguments);
};
