// Turns one message into an action and a status; the server makes the reply line of it. One entry
// point per server.
//
// All members are static. Commands of the command and the apps-communication server run on the main
// thread, those of the pressure server on the pressure thread; the reply text is kept per thread,
// so that no client ever gets a text that the other thread's command left.
//
// Failure: a status below zero. The reason is the line that was logged last.
#pragma once

#include <string>

#include "commands/CommandTable.h"
#include "commands/Status.h"

class CommandHandler {
  public:
    CommandHandler() = delete;

    // The command server's, the pressure server's and the apps-communication server's commands, of
    // which the last, that pass on long texts, come as UTF-8. SOCKET is the client that asks.
    static Status HandleCommand(std::wstring& message);
    static Status HandlePressureCommand(std::wstring& message);
    static Status HandleCommandFromSocket(const std::string& message, int socket);

    // The apps-communication server's client SOCKET goes, and its channel with it.
    static void FreeChannel(int socket);

    // The text that the last command of this thread left, which is then empty.
    static std::wstring GetReply();
    static void SetReply(const std::wstring& text);

    // Whether WORDCOUNT words are a command name and EXPECTED arguments; logs it when not.
    static bool CheckArguments(int wordCount, int expected);

    // True when the command belongs to the family; STATUS is then what became of it.
    static bool HandleAIRSpecificCommands(Words words, Status& status);
    static bool HandleNativeSpecificCommand(Words words, Status& status);

    // What the families ask of the application NAME with the id APPLICATIONID: 0 for yes or done,
    // -1 (an installation: -2) otherwise.
    static int isAirAppInstalled(const std::wstring& name, const std::wstring& applicationId);
    static int isNativeAppInstalled(const std::wstring& name, const std::wstring& applicationId);
    static int UninstallOsApp(const std::wstring& name, const std::wstring& applicationId);
    static int InstallAirApp(const std::wstring& name, const std::wstring& applicationId,
                             const std::wstring& package);

    // Makes the dock start at login, or no longer: added by its whole path, removed by its name
    // alone. 0, whatever becomes of it.
    static int SetAsStartupItem();
    static int RemoveAsStartupItem();

    // The folder that all users share, and the only one in which permissions are changed on
    // request.
    static const wchar_t* const commonUserDir;
};
