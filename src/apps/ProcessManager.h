// What the service can do to programs, applications and files on a client's behalf: start, open,
// find and quit programs, install, upgrade and remove applications.
//
// All members are static and belong to the thread that handles commands (FindPSNForProcessID may be
// used on any). Long operations block it: installers are waited for, and so is the administrator's
// dialog. Failures are logged and told by the result. Paths are wide; Launch Services and the file
// system get them as UTF-8, shells and the log as 8-bit text in which what is not ASCII is "?".
//
// The class is implemented in one file per subject: ProcessManager.cpp (files),
// ProcessManagerLaunch.cpp, ProcessManagerControl.cpp, ProcessManagerInstall.cpp and
// ProcessManagerRemove.cpp.
#pragma once

#include <Carbon/Carbon.h>

#include <string>
#include <vector>

class ProcessManager {
  public:
    ProcessManager() = delete;

    // --- Files

    // False only when PATH certainly does not exist: a path that cannot be looked at counts as
    // existing.
    static bool CheckFileExists(const std::wstring& path);
    // Whether PATH begins with ROOT and has no ".." in it. Nothing is normalised.
    static bool IsSubPath(const std::wstring& path, const std::wstring& root);
    // Lets everybody read and write PATH, and execute (or search) it with EXECUTABLE. False when
    // the system refuses, and for what another user may have chosen: what a link of his leads to,
    // or a file with a second name in a folder where everybody may write.
    static bool FixPermissions(const std::wstring& path, bool executable);

    // --- Starting

    // Launches an application or a program, or opens a document with its application, by the
    // extension of PATH.
    static bool StartProcess(const std::wstring& path);
    // FOLDER is followed directly by NAME. With arguments the result is true whatever came of it.
    static bool StartProcessWithArguments(const std::wstring& folder, const std::wstring& name,
                                          const std::wstring& arguments);
    static bool StartProcessWithArguments(const std::wstring& path, const std::wstring& arguments);
    // Runs a program through the shell and returns when it has closed its output. ARGUMENTS are not
    // quoted.
    static bool OpenProcessWithArguments(const std::wstring& path, const std::wstring& arguments);
    static bool OpenDocument(const std::wstring& path);
    // WORDS are a command's: word 1 is the application's name, word 2 its id.
    static bool StartAirApp(const std::vector<std::wstring>& words);
    static bool StartNativeApp(const std::vector<std::wstring>& words);
    // Starts the dock; when that fails tells the user, and waits for the answer.
    static bool StartTesselDock(const std::string& arguments);
    // Starts this program anew and ends this process. Returns only when that fails.
    static void HotReboot();

    // --- Running programs

    // Asks the application to quit. True when it was asked, or was not running.
    static bool QuitApplication(const std::wstring& bundleIdentifier);
    // The first running application, but for those in the background only, with this bundle
    // identifier or, when that is null, this name. None without either.
    static bool FindPSNForProcessID(ProcessSerialNumber* out, CFStringRef processName,
                                    CFStringRef bundleIdentifier);

    // --- Installed applications

    // 1 when Launch Services knows an application with this id, whose reference is then stored; 0
    // when not.
    static int isOsAppInstalled(const std::wstring& name, const std::wstring& applicationId,
                                FSRef* ref);
    // The arguments that make the installer install PACKAGE silently.
    static std::string GenerateAirInstallerArguments(const std::string& package);
    static bool InstallAirApplication(const std::wstring& name, const std::wstring& applicationId,
                                      const std::string& package, bool elevationAllowed);
    static bool UpgradeAirApplication(const std::wstring& name, const std::wstring& applicationId,
                                      const std::string& package);
    // Makes Launch Services notice what has been installed in the dock's folder of applications.
    static void TouchTesselApplications();
    // True when the application's folder is gone, or there was nothing to remove.
    static bool UninstallOsApp(const std::wstring& name, const std::wstring& applicationId,
                               bool elevationAllowed);
    // Deletes a folder with all that is in it, after a second's wait; 1 for success.
    static int RemoveDirectory(const FSRef* folder);

    // The dock's executable, the installer of AIR applications, and where the dock's applications
    // are installed.
    static const wchar_t* const exeManager;
    static const wchar_t* const installManager;
    static const char* const airAppInstallLocation;

  private:
    // Whether the dock is looked for in its fixed place, not beside this program.
    static constexpr bool useFixedManagerPath = true;
};
