#include "apps/Scripts.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <initializer_list>

#include "apps/AuthorizeExecute.h"
#include "apps/ProcessOpenManager.h"
#include "apps/ScriptStrings.h"
#include "core/Helpers.h"
#include "core/Owners.h"

const char* const Scripts::coreUpdateScript = ScriptStrings::kCoreUpdate;
const char* const Scripts::coreUninstallScript = ScriptStrings::kCoreUninstall;
const char* const Scripts::rmDirectoryScript = ScriptStrings::kRemoveDirectory;
const char* const Scripts::installAirAppScript = ScriptStrings::kInstallAirApp;
const char* const Scripts::upgradeAirAppScript = ScriptStrings::kUpgradeAirApp;

namespace {

constexpr gid_t kAdminGroup = 80;
constexpr mode_t kEverybodyMayRun = 0777;

// True when all of TEXT is on the disk.
bool Write(std::FILE* file, const std::string& text) {
    return std::fwrite(text.data(), 1, text.size(), file) == text.size() && std::fflush(file) == 0;
}

bool TellThatNoScript(int error) {
    Helpers::reportError(error, "Creating script file in support dir");
    return false;
}

// Puts VALUES, in their order, where SCRIPT has "%s". A value is never looked at again.
std::string Fill(std::string script, std::initializer_list<std::string> values) {
    static const char kMark[] = "%s";
    constexpr std::size_t kMarkLength = sizeof kMark - 1;
    std::size_t from = 0;
    for (const std::string& value : values) {
        const std::size_t found = script.find(kMark, from);
        script.replace(found, kMarkLength, value);
        from = found + value.size();
    }
    return script;
}

}  // namespace

bool Scripts::RequiresElevation(const std::string& path) {
    constexpr auto kUnchanged = static_cast<uid_t>(-1);
    return chown(path.c_str(), kUnchanged, kAdminGroup) != 0;
}

bool Scripts::GenerateScriptFile(const std::string& path, const std::string& script) {
    const std::string text = Helpers::replaceTildeWithHomeDir(script);
    Helpers::logprint("GenerateScript: Starting script generation");
    Helpers::logprint("Target path:" + path);
    // An older script, or a link, that cannot be written to may be deletable all the same.
    unlink(path.c_str());
    const FileOwner file(std::fopen(path.c_str(), "w"));
    if (!file) {
        return TellThatNoScript(errno);
    }
    const int descriptor = fileno(file.get());
    fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    if (!Write(file.get(), text)) {
        const int error = errno;
        // The beginning of a script may do something else than the whole, and with root's rights.
        unlink(path.c_str());
        return TellThatNoScript(error);
    }
    fchmod(descriptor, kEverybodyMayRun);
    return true;
}

bool Scripts::StartScript(const std::string& path) {
    Helpers::logprint("GenerateScript: Starting script");
    return ProcessOpenManager::getInstance()->open(("/bin/sh '" + path + "'").c_str(), "w", nullptr,
                                                   false);
}

bool Scripts::WriteAndRunScript(const std::string& name, const std::string& script, bool elevated) {
    const std::string path = Helpers::getTempFolder() + name;
    Helpers::logprint("Scripts: Writing script...");
    if (!GenerateScriptFile(path, script)) {
        Helpers::logprint("Scripts: Unable to create script at support path, aborting");
        return false;
    }
    return elevated ? AuthorizeExecute::StartElevatedScript(path) == noErr : StartScript(path);
}

bool Scripts::GenerateRemoveDirectoryScriptFile(const std::string& scriptPath,
                                                const std::string& folder) {
    Helpers::logprintf(" -GenerateRemoveDirectoryScriptFile: %s", folder);
    return GenerateScriptFile(scriptPath, Fill(rmDirectoryScript, {folder}));
}

bool Scripts::GenerateInstallAirAppScriptFile(const std::string& scriptPath,
                                              const std::string& installer,
                                              const std::string& arguments) {
    Helpers::logprintf(" -GenerateInstallAirAppScriptFile: %s", arguments);
    const std::string script = Fill(installAirAppScript, {installer, arguments});
    Helpers::logprintf("ganerated file:\n%s\n", script);
    return GenerateScriptFile(scriptPath, script);
}

bool Scripts::GenerateUpgradeAirAppScriptFile(const std::string& scriptPath,
                                              const std::string& oldFolder,
                                              const std::string& installer,
                                              const std::string& arguments) {
    Helpers::logprintf(" -GenerateUpgradeAirAppScriptFile: %s", arguments);
    const std::string script = Fill(upgradeAirAppScript, {oldFolder, installer, arguments});
    Helpers::logprintf("ganerated file:\n%s\n", script);
    return GenerateScriptFile(scriptPath, script);
}
