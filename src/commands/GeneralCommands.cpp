#include "commands/GeneralCommands.h"

#include <cwchar>

#include "apps/ProcessManager.h"
#include "commands/CommandHandler.h"
#include "core/Helpers.h"
#include "core/Updater.h"
#include "system/CFPreferencesManager.h"
#include "system/CountryTimeZoneMapping.h"
#include "system/IconCreator.h"
#include "system/TimeZoneWrapper.h"

namespace {

// What the dock is called among applications.
constexpr char kDockBundleId[] =
    "veltoid-desktop-launcher.5E2A91C07B3D48F6A0C1E9D27F84B3A6C05D1E98.1";

Status Exit(const Words& /*words*/) {
    return Status::kQuitRequested;
}

Status Update(const Words& words) {
    Updater::SetUpdatePath(words[1]);
    Updater::updateRequested = true;
    return Status::kEndService;
}

Status SetAsStartup(const Words& /*words*/) {
    return static_cast<Status>(CommandHandler::SetAsStartupItem());
}

Status RemoveAsStartup(const Words& /*words*/) {
    return static_cast<Status>(CommandHandler::RemoveAsStartupItem());
}

Status GetIcon(const Words& words) {
    return IconCreator::SaveIconFromBundleAsPNG(words[1]) ? Status::kIconReady
                                                          : Status::kIconMissing;
}

Status DockUpdateFinished(const Words& /*words*/) {
    return Status::kSuccess;
}

Status AnswerWhetherAdministrator(const wchar_t* key) {
    CommandHandler::SetReply(std::wstring(key) + (Helpers::isUserAdminType() ? L"true" : L"false"));
    return Status::kSuccess;
}

Status UserCanPerformDockUpdate(const Words& /*words*/) {
    return AnswerWhetherAdministrator(L"UserCanPerformDockUpdate=");
}

Status UserCanAdministerAirApps(const Words& /*words*/) {
    return AnswerWhetherAdministrator(L"UserCanAdministerAirApps=");
}

Status UserCanAdministerNativeApps(const Words& /*words*/) {
    return AnswerWhetherAdministrator(L"UserCanAdministerNativeApps=");
}

Status GetCommonUserDir(const Words& /*words*/) {
    CommandHandler::SetReply(std::wstring(L"CommonUserDir=") + CommandHandler::commonUserDir);
    return Status::kSuccess;
}

Status GetCoreVersion(const Words& /*words*/) {
    wchar_t text[512];
    std::swprintf(text, sizeof text / sizeof text[0], L"CoreVersion=%ls",
                  Helpers::getCoreVersion().c_str());
    CommandHandler::SetReply(text);
    return Status::kSuccess;
}

// A refusal by the system is a success without the key: that is how clients tell the two apart.
Status FixPermissions(const std::wstring& path, bool executable, const wchar_t* key) {
    if (!ProcessManager::IsSubPath(path, CommandHandler::commonUserDir)) {
        return Status::kSyntaxError;
    }
    if (ProcessManager::FixPermissions(path, executable)) {
        CommandHandler::SetReply(key + path);
    }
    return Status::kSuccess;
}

Status FixDirectoryPermissions(const Words& words) {
    return FixPermissions(words[1], true, L"DirectoryPermissionsFixed=");
}

Status FixFilePermissions(const Words& words) {
    return FixPermissions(words[1], false, L"FilePermissionsFixed=");
}

Status CreateUUID(const Words& /*words*/) {
    CommandHandler::SetReply(L"UUID=" + Helpers::stringToWString(Helpers::generateUUID()));
    return Status::kSuccess;
}

Status StartProcess(const Words& words) {
    const std::wstring path = words.size() > 1 ? words[1] : std::wstring();
    return ProcessManager::StartProcess(path) ? Status::kSuccess : Status::kFailure;
}

Status CheckExists(const Words& words) {
    return ProcessManager::CheckFileExists(words[1]) ? Status::kYes : Status::kNo;
}

Status Platform(const Words& /*words*/) {
    CommandHandler::SetReply(L"MACOSX");
    return Status::kSuccess;
}

Status GetLocalCountryCode(const Words& /*words*/) {
    const std::string zone = GetLocalTimeZoneName();
    const std::string code = CountryTimeZoneMapping::GetCountryCode(zone.c_str());
    Helpers::logprintf("Time zone: %s", zone);
    Helpers::logprintf("Country code: %s", code);
    CommandHandler::SetReply(L"LocalCountryCode=" + Helpers::stringToWString(code));
    return Status::kSuccess;
}

// Does CHANGE for every extension, also when one fails, and lets Launch Services know.
template <typename Change>
Status ChangeAssociations(const Words& words, Change change) {
    if (words.size() < 2) {
        return Status::kSyntaxError;
    }
    bool all = true;
    for (auto word = words.begin() + 1; word != words.end(); ++word) {
        all = change(Helpers::wstringToString(*word)) && all;
    }
    CFPreferencesManager::RestartLaunchServicesDB();
    return all ? Status::kYes : Status::kNo;
}

Status AssociateFileTypes(const Words& words) {
    return ChangeAssociations(words, [](const std::string& extension) {
        return CFPreferencesManager::AssociateFileExtensionToBundle(extension, kDockBundleId);
    });
}

Status UnassociateFileTypes(const Words& words) {
    return ChangeAssociations(words, CFPreferencesManager::UnassociateFileExtensionToBundle);
}

constexpr Command kRows[] = {
    {"exit", kAnyNumberOfArguments, Exit},
    {"update", 1, Update},
    {"dockUpdateFinished", kAnyNumberOfArguments, DockUpdateFinished},
    {"setAsStartup", kAnyNumberOfArguments, SetAsStartup},
    {"removeAsStartup", kAnyNumberOfArguments, RemoveAsStartup},
    {"getIcon", 1, GetIcon},
    {"userCanPerformDockUpdate", 0, UserCanPerformDockUpdate},
    {"userCanAdministerAirApps", 0, UserCanAdministerAirApps},
    {"userCanAdministerNativeApps", 0, UserCanAdministerNativeApps},
    {"getCommonUserDir", kAnyNumberOfArguments, GetCommonUserDir},
    {"getCoreVersion", kAnyNumberOfArguments, GetCoreVersion},
    {"fixDirectoryPermissions", 1, FixDirectoryPermissions},
    {"fixFilePermissions", 1, FixFilePermissions},
    {"createUUID", 0, CreateUUID},
    {"startProcess", kAnyNumberOfArguments, StartProcess},
    {"checkExists", 1, CheckExists},
    {"platform", kAnyNumberOfArguments, Platform},
    {"getLocalCountryCode", 0, GetLocalCountryCode},
    {"associateFileTypes", kAnyNumberOfArguments, AssociateFileTypes},
    {"unassociateFileTypes", kAnyNumberOfArguments, UnassociateFileTypes},
};

}  // namespace

bool RunGeneralCommand(const Words& words, Status& status) {
    return RunCommand(kRows, words, status);
}
