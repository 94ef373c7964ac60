#include "LaunchServices/Launch.h"

#include <CarbonCore/MacErrors.h>
#include <LaunchServices/LSInfo.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <optional>

#include "LaunchServices/ApplicationBundle.h"
#include "Support/DetachedProgram.h"
#include "Support/HeldProcess.h"
#include "Support/JournalStream.h"
#include "Support/Proc.h"
#include "Support/UserEnvironment.h"

namespace frameworks {
namespace {

// A program that was asked to quit, or was killed, may be there a moment longer.
constexpr std::chrono::milliseconds kTimeToEnd{200};

bool IsExecutableFile(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           access(path.c_str(), X_OK) == 0;
}

bool IsFolder(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// The application around its own executable, empty for any other file.
std::string BundleAround(const std::string& executable) {
    constexpr std::string_view kInside = "/Contents/MacOS/";
    const std::size_t inside = executable.rfind(kInside);
    if (inside == std::string::npos) return std::string();
    std::string bundle = executable.substr(0, inside);
    const bool isIts = IsNamedLikeApplication(bundle) && ExecutableOf(bundle) == executable;
    return isIts ? bundle : std::string();
}

bool IsRunning(const std::string& executable) {
    bool found = false;
    ForEachProcess([&](pid_t pid, ino_t) {
        if (found) return;
        const std::optional<ProcessStatus> process = StatusOf(pid);
        found = process && !process->isZombie && !process->isKernelThread &&
                ProgramOf(*process) == executable && !HeldProcess(*process).EndsWithin(kTimeToEnd);
    });
    return found;
}

OSStatus StatusOfStart(int error) {
    switch (error) {
        case 0:
            return noErr;
        case ENOENT:
        case ENOTDIR:
            return kLSNoExecutableErr;
        case EACCES:
        case EPERM:
            return kLSNoLaunchPermissionErr;
        case ENOEXEC:
            return kLSExecutableIncorrectFormat;
        case ENOMEM:
            return memFullErr;
        default:
            return kLSUnknownErr;
    }
}

OSStatus Run(const std::string& executable) {
    DetachedProgram program;
    program.words = {executable};
    program.environment = EnvironmentOfUser();
    const UniqueDescriptor journal =
        OpenJournalStream(std::string_view(executable).substr(executable.rfind('/') + 1));
    program.output = journal.Get();
    program.errors = journal.Get();
    return StatusOfStart(StartDetached(program));
}

OSStatus LaunchBundle(const std::string& bundle) {
    if (IsInTrash(bundle)) return kLSAppInTrashErr;
    const std::string executable = ExecutableOf(bundle);
    if (executable.empty()) return kLSNoExecutableErr;
    return IsRunning(executable) ? static_cast<OSStatus>(noErr) : Run(executable);
}

}  // namespace

bool IsApplication(const std::string& path) {
    return IsNamedLikeApplication(path) && IsFolder(path);
}

bool IsLaunchable(const std::string& path) {
    return IsApplication(path) || IsExecutableFile(path);
}

OSStatus LaunchApplication(const std::string& path) {
    if (!IsLaunchable(path)) return kLSNotAnApplicationErr;
    if (IsFolder(path)) return LaunchBundle(path);
    const std::string bundle = BundleAround(path);
    return bundle.empty() ? Run(path) : LaunchBundle(bundle);
}

}  // namespace frameworks
