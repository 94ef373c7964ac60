#include <cstdio>
#include <cstdlib>

#include "apps/Paths.h"
#include "apps/ProcessManager.h"
#include "apps/ProcessOpenManager.h"
#include "core/Helpers.h"
#include "core/Owners.h"

namespace {

// The doubled slashes are what the log and the alert have always shown.
constexpr wchar_t kDockFolder[] =
    L"//Applications//Tessel Dock//Tessel Dock.app//Contents//MacOS//";
constexpr char kDockBundle[] = "//Applications//Tessel Dock//Tessel Dock.app//";
constexpr char kDownloadPage[] = "http://www.example.com/dock/download";

// What Launch Services says when its server cannot be reached.
constexpr OSStatus kNoLaunchServices = kLSServerCommunicationErr;

std::string ErrorText(OSStatus status) {
    return GetMacOSStatusErrorString(status);
}

OSStatus Open(const LSLaunchFSRefSpec& launch) {
    return LSOpenFromRefSpec(&launch, nullptr);
}

// Starts a command line without waiting for it.
bool StartCommand(const std::string& command) {
    return ProcessOpenManager::getInstance()->open(command.c_str(), "w", nullptr, false);
}

bool HasNameAndId(const std::vector<std::wstring>& words) {
    constexpr std::size_t kFewest = 3;
    if (words.size() >= kFewest) {
        return true;
    }
    Helpers::logprintf(
        "ProcessManager::StartAirApp - wrong number of argumets. Expected atleast 3, got %d",
        static_cast<int>(words.size()));
    return false;
}

// Finds the application that WORDS name; false, and logged, when there is none.
bool FindInstalled(const std::vector<std::wstring>& words, FSRef& application) {
    if (!HasNameAndId(words)) {
        return false;
    }
    if (ProcessManager::isOsAppInstalled(words[1], words[2], &application) != 0) {
        return true;
    }
    Helpers::logprintf("ProcessManager::StartAirApp - application %s is not installed",
                       Helpers::wstringToString(words[1]));
    return false;
}

void TellThatDockIsBroken() {
    const std::string message =
        std::string(
            "The Tessel Dock installation is corrupted. Please reinstall the application. \n\n"
            "You can find the latest Tessel Dock at: \n") +
        kDownloadPage + "\n\nOur apologies for any inconvenience.";
    const auto bundle = CFOwner<CFBundleRef>::Adopt(Helpers::getBundleRef(kDockBundle));
    const auto icon = CFOwner<CFURLRef>::Adopt(
        bundle ? CFBundleCopyResourceURL(bundle.Get(), CFSTR("Icon"), CFSTR("icns"), nullptr)
               : nullptr);
    const auto text = CFOwner<CFStringRef>::Adopt(
        CFStringCreateWithCString(kCFAllocatorDefault, message.c_str(), kCFStringEncodingUTF8));
    constexpr CFTimeInterval kNoTimeOut = 0;
    CFOptionFlags answer = 0;
    CFUserNotificationDisplayAlert(kNoTimeOut, kCFUserNotificationStopAlertLevel, icon.Get(),
                                   nullptr, nullptr, CFSTR("Tessel Dock - Failure"), text.Get(),
                                   nullptr, nullptr, nullptr, &answer);
}

}  // namespace

bool ProcessManager::StartProcess(const std::wstring& path) {
    const std::wstring extension = Helpers::getExtension(path);
    if (extension.empty() || extension == L".app") {
        return StartProcessWithArguments(std::wstring(), path, std::wstring());
    }
    return OpenDocument(path);
}

bool ProcessManager::StartProcessWithArguments(const std::wstring& path,
                                               const std::wstring& arguments) {
    return StartProcessWithArguments(std::wstring(), path, arguments);
}

bool ProcessManager::StartProcessWithArguments(const std::wstring& folder, const std::wstring& name,
                                               const std::wstring& arguments) {
    const std::wstring path = folder + name;
    if (!arguments.empty()) {
        if (!OpenProcessWithArguments(path, arguments)) {
            Helpers::logprint("Fallback failed.");
        }
        return true;
    }
    const FSRef application = ReferenceTo(Helpers::wstringToUtf8(path)).ref;
    const LSLaunchFSRefSpec launch = {
        &application, 0, nullptr, nullptr, kLSLaunchDefaults | kLSLaunchDontAddToRecents, nullptr};
    const OSStatus status = Open(launch);
    if (status == noErr) {
        return true;
    }
    Helpers::logprintf("Unable to start application, error %d", static_cast<int>(status));
    Helpers::logprint(ErrorText(status));
    if (status != kNoLaunchServices) {
        return false;
    }
    Helpers::logprint("Attempting low-level fallback (no unicode support)");
    if (StartCommand("'" + Helpers::wstringToString(path) + "'")) {
        return true;
    }
    Helpers::logprint("Fallback failed.");
    return false;
}

bool ProcessManager::OpenProcessWithArguments(const std::wstring& path,
                                              const std::wstring& arguments) {
    const std::string command =
        "'" + Helpers::wstringToString(path) + "' " + Helpers::wstringToString(arguments);
    return ProcessOpenManager::getInstance()->open(command.c_str(), "r+", nullptr, false);
}

bool ProcessManager::OpenDocument(const std::wstring& path) {
    const FSRef document = ReferenceTo(Helpers::wstringToUtf8(path)).ref;
    const LSLaunchFSRefSpec launch = {nullptr, 1, &document, nullptr, kLSLaunchDefaults, nullptr};
    const OSStatus status = Open(launch);
    if (status != noErr) {
        Helpers::logprintf("Unable to open document, error %d", static_cast<int>(status));
        Helpers::logprint(ErrorText(status));
    }
    return status == noErr;
}

bool ProcessManager::StartAirApp(const std::vector<std::wstring>& words) {
    FSRef application = {};
    return FindInstalled(words, application) && LSOpenFSRef(&application, nullptr) == noErr;
}

bool ProcessManager::StartNativeApp(const std::vector<std::wstring>& words) {
    FSRef application = {};
    if (!FindInstalled(words, application)) {
        return false;
    }
    LSApplicationParameters parameters = {};
    parameters.flags = kLSLaunchDefaults;
    parameters.application = &application;
    return LSOpenApplication(&parameters, nullptr) == noErr;
}

void ProcessManager::HotReboot() {
    constexpr std::size_t kCommandSize = 2048;
    const std::string path = Helpers::wstringToString(Helpers::getCurrentProcessImage());
    Helpers::logprint("[HOTREBOOT] Rebooting into: [HOTREBOOT]");
    Helpers::logprint(path);
    char command[kCommandSize];
    std::snprintf(command, sizeof command, "\"%s\"", path.c_str());
    if (StartCommand(command)) {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): no handler or destructor has work to do at exit
        std::exit(0);
    }
    std::perror("Popen: Unable to hotreboot");
}

bool ProcessManager::StartTesselDock(const std::string& arguments) {
    const std::wstring folder = useFixedManagerPath ? kDockFolder : Helpers::getCurrentPath();
    Helpers::logprint("Opening manager at:");
    Helpers::logprint(folder);
    const bool started =
        StartProcessWithArguments(folder, exeManager, Helpers::stringToWString(arguments));
    if (!started) {
        TellThatDockIsBroken();
    }
    return started;
}
