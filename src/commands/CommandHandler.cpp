#include "commands/CommandHandler.h"

#include <utility>

#include "apps/ProcessManager.h"
#include "commands/ApplicationCommands.h"
#include "commands/ChannelCommands.h"
#include "commands/GeneralCommands.h"
#include "commands/PressureCommands.h"
#include "commands/UTF8Words.h"
#include "core/Helpers.h"
#include "core/PerThread.h"
#include "system/CFPreferencesManager.h"

const wchar_t* const CommandHandler::commonUserDir = L"/Users/Shared/Velto/";

namespace {

std::wstring& ReplyOfThisThread() {
    struct Tag;
    return PerThread<std::wstring, Tag>();
}

Status Refuse(const char* reason) {
    Helpers::logprint(reason);
    return Status::kSyntaxError;
}

}  // namespace

std::wstring CommandHandler::GetReply() {
    return std::exchange(ReplyOfThisThread(), std::wstring());
}

void CommandHandler::SetReply(const std::wstring& text) {
    ReplyOfThisThread() = text;
}

bool CommandHandler::CheckArguments(int wordCount, int expected) {
    if (wordCount == expected + 1) {
        return true;
    }
    Helpers::logprintf("Wrong number of arguments, expected: %d", expected);
    return false;
}

Status CommandHandler::HandleCommand(std::wstring& message) {
    const Words words = Helpers::splitCommand(message);
    if (words.empty()) {
        return Refuse("No command found.");
    }
    Status status = Status::kSuccess;
    if (RunGeneralCommand(words, status) || HandleAIRSpecificCommands(words, status) ||
        HandleNativeSpecificCommand(words, status)) {
        return status;
    }
    return Refuse("Unknown command");
}

// The words are handed over.
// cppcheck-suppress passedByValue
// NOLINTNEXTLINE(performance-unnecessary-value-param)
bool CommandHandler::HandleAIRSpecificCommands(Words words, Status& status) {
    if (words.empty()) {
        status = Refuse("No command found.");
        return false;
    }
    return RunAirCommand(words, status);
}

// The words are handed over.
// cppcheck-suppress passedByValue
// NOLINTNEXTLINE(performance-unnecessary-value-param)
bool CommandHandler::HandleNativeSpecificCommand(Words words, Status& status) {
    if (words.size() < 2) {
        status = Refuse("No valid command found.");
        return false;
    }
    return RunNativeCommand(words, status);
}

int CommandHandler::isAirAppInstalled(const std::wstring& name, const std::wstring& applicationId) {
    FSRef application = {};
    return ProcessManager::isOsAppInstalled(name, applicationId, &application) == 1 ? 0 : -1;
}

int CommandHandler::isNativeAppInstalled(const std::wstring& name,
                                         const std::wstring& applicationId) {
    return isAirAppInstalled(name, applicationId);
}

int CommandHandler::UninstallOsApp(const std::wstring& name, const std::wstring& applicationId) {
    return ProcessManager::UninstallOsApp(name, applicationId, true) ? 0 : -1;
}

int CommandHandler::InstallAirApp(const std::wstring& name, const std::wstring& applicationId,
                                  const std::wstring& package) {
    constexpr int kFailed = -2;
    if (Helpers::isNullOrEmpty(package)) {
        Helpers::logprint("InstallAirApp: Argument null or empty.");
        return kFailed;
    }
    return ProcessManager::InstallAirApplication(name, applicationId,
                                                 Helpers::wstringToString(package), true)
               ? 0
               : kFailed;
}

int CommandHandler::SetAsStartupItem() {
    CFPreferencesManager::AddAsStartupItem(L"/Applications/Tessel Dock/Tessel Dock.app");
    return 0;
}

int CommandHandler::RemoveAsStartupItem() {
    CFPreferencesManager::RemoveAsStartupItem(L"Tessel Dock.app");
    return 0;
}

Status CommandHandler::HandlePressureCommand(std::wstring& message) {
    const Words words = Helpers::splitCommand(message);
    if (words.empty()) {
        return Refuse("No command found.");
    }
    Status status = Status::kSuccess;
    return RunPressureCommand(words, status) ? status : Refuse("Unknown command");
}

Status CommandHandler::HandleCommandFromSocket(const std::string& message, int socket) {
    const UTF8Words words(message);
    if (words.empty()) {
        return Refuse("No command found.");
    }
    return RunChannelCommand(words, socket);
}

void CommandHandler::FreeChannel(int socket) {
    ForgetChannel(socket);
}
