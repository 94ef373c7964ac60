#include "commands/CommandHandler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "core/Helpers.h"
#include "core/Owners.h"
#include "core/Updater.h"
#include "system/CFPreferencesManager.h"
#include "unit/support/ForkedTest.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// A client's number, which nothing here sends to.
constexpr int kSomeClient = 99;

Status Command(const std::wstring& message) {
    std::wstring copy = message;
    return CommandHandler::HandleCommand(copy);
}

Status PressureCommand(const std::wstring& message) {
    std::wstring copy = message;
    return CommandHandler::HandlePressureCommand(copy);
}

Status SocketCommand(const std::string& message) {
    return CommandHandler::HandleCommandFromSocket(message, kSomeClient);
}

// Runs BODY in a process of its own, behind the log's own first line.
void Quietly(const std::function<void()>& body) {
    InChild([&body] {
        Helpers::logprint("opens the log");
        Printed();
        body();
    });
}

// A program in the place of id.
void AnswerFor(const std::string& answer) {
    const std::string folder = Home() + "/bin";
    mkdir(folder.c_str(), 0700);
    WriteFile(folder + "/id",
              "#!/bin/sh\necho asked >> " + Home() + "/asked\necho '" + answer + "'\n");
    ASSERT_EQ(0, chmod((folder + "/id").c_str(), 0700));
    ASSERT_EQ(0, setenv("PATH", (folder + ":/usr/bin:/bin").c_str(), 1));
}

// --- The reply text

TEST(Reply, IsReadOnce) {
    EXPECT_EQ(L"", CommandHandler::GetReply());
    CommandHandler::SetReply(L"UUID=x");
    EXPECT_EQ(L"UUID=x", CommandHandler::GetReply());
    EXPECT_EQ(L"", CommandHandler::GetReply());
}

TEST(Reply, IsReplacedNotAppendedTo) {
    CommandHandler::SetReply(L"one");
    CommandHandler::SetReply(L"two");
    EXPECT_EQ(L"two", CommandHandler::GetReply());
}

TEST(Reply, DoesNotCrossThreads) {
    CommandHandler::SetReply(L"mine");
    std::thread([] {
        EXPECT_EQ(L"", CommandHandler::GetReply());
        CommandHandler::SetReply(L"its own");
    }).join();
    EXPECT_EQ(L"mine", CommandHandler::GetReply());
}

// --- The number of arguments

TEST(CheckArguments, CountsTheWordsWithoutTheName) {
    Quietly([] {
        EXPECT_TRUE(CommandHandler::CheckArguments(1, 0));
        EXPECT_TRUE(CommandHandler::CheckArguments(4, 3));
        EXPECT_THAT(Printed(), IsEmpty());
        EXPECT_FALSE(CommandHandler::CheckArguments(1, 1));
        EXPECT_FALSE(CommandHandler::CheckArguments(3, 1));
        EXPECT_FALSE(CommandHandler::CheckArguments(2, 0));
        EXPECT_THAT(Printed(), ElementsAre("Wrong number of arguments, expected: 1",
                                           "Wrong number of arguments, expected: 1",
                                           "Wrong number of arguments, expected: 0"));
        EXPECT_EQ(L"Wrong number of arguments, expected: 0", Helpers::getLastLog());
    });
}

// --- The frames

TEST(HandleCommand, WithoutWords_SaysSo) {
    Quietly([] {
        for (const wchar_t* const message : {L"", L"''", L"\"\"", L"''\"\""}) {
            EXPECT_EQ(Status::kSyntaxError, Command(message));
            EXPECT_THAT(Printed(), ElementsAre("No command found."));
        }
    });
}

TEST(HandleCommand, OfOneUnknownWord_SaysFirstThatNoneIsValid) {
    Quietly([] {
        for (const wchar_t* const message :
             {L"nonsense", L"Exit", L"exi", L"installNativeApp", L" ", L"| "}) {
            EXPECT_EQ(Status::kSyntaxError, Command(message));
            EXPECT_THAT(Printed(), ElementsAre("No valid command found.", "Unknown command"));
        }
    });
}

TEST(HandleCommand, OfMoreUnknownWords_SaysUnknown) {
    Quietly([] {
        for (const wchar_t* const message : {L"nonsense x", L"Platform x y", L"\texit now"}) {
            EXPECT_EQ(Status::kSyntaxError, Command(message));
            EXPECT_THAT(Printed(), ElementsAre("Unknown command"));
        }
    });
}

TEST(HandleCommand, OfABlankAndACommand_IsUnknown) {
    Quietly([] {
        EXPECT_EQ(Status::kSyntaxError, Command(L" exit"));
        EXPECT_THAT(Printed(), ElementsAre("Unknown command"));
    });
}

TEST(HandleCommand, OfBlanksAlone_IsUnknown) {
    Quietly([] {
        EXPECT_EQ(Status::kSyntaxError, Command(L"    "));
        EXPECT_THAT(Printed(), ElementsAre("Unknown command"));
    });
}

TEST(HandleCommand, LeavesItsMessageAsItWas) {
    std::wstring message = L"platform 'x y'";
    CommandHandler::HandleCommand(message);
    EXPECT_EQ(L"platform 'x y'", message);
    CommandHandler::GetReply();
}

TEST(HandleAIRSpecificCommands, OfNoWords_SaysSoAndLeavesThemToOthers) {
    Quietly([] {
        Status status = Status::kSuccess;
        EXPECT_FALSE(CommandHandler::HandleAIRSpecificCommands({}, status));
        EXPECT_EQ(Status::kSyntaxError, status);
        EXPECT_THAT(Printed(), ElementsAre("No command found."));
    });
}

TEST(HandleNativeSpecificCommand, OfTooFewWords_SaysSoAndLeavesThemToOthers) {
    Quietly([] {
        Status status = Status::kSuccess;
        EXPECT_FALSE(CommandHandler::HandleNativeSpecificCommand({L"x"}, status));
        EXPECT_EQ(Status::kSyntaxError, status);
        EXPECT_THAT(Printed(), ElementsAre("No valid command found."));
        status = Status::kSuccess;
        EXPECT_FALSE(CommandHandler::HandleNativeSpecificCommand({L"x", L"y"}, status));
        EXPECT_EQ(Status::kSuccess, status);
        EXPECT_THAT(Printed(), IsEmpty());
    });
}

TEST(HandlePressureCommand, WithoutWords_SaysSo) {
    Quietly([] {
        EXPECT_EQ(Status::kSyntaxError, PressureCommand(L""));
        EXPECT_EQ(Status::kSyntaxError, PressureCommand(L"''"));
        EXPECT_THAT(Printed(), ElementsAre("No command found.", "No command found."));
    });
}

TEST(HandlePressureCommand, OfUnknownWords_SaysOnlyThat) {
    Quietly([] {
        for (const wchar_t* const message : {L"nonsense", L"platform", L"exit", L" startTablet"}) {
            EXPECT_EQ(Status::kSyntaxError, PressureCommand(message));
            EXPECT_THAT(Printed(), ElementsAre("Unknown command"));
        }
    });
}

TEST(HandleCommandFromSocket, WithoutWords_SaysSo) {
    Quietly([] {
        EXPECT_EQ(Status::kSyntaxError, SocketCommand(""));
        EXPECT_EQ(Status::kSyntaxError, SocketCommand("''"));
        EXPECT_THAT(Printed(), ElementsAre("No command found.", "No command found."));
    });
}

TEST(HandleCommandFromSocket, OfUnknownWords_SucceedsWithNothingDone) {
    Quietly([] {
        for (const char* const message :
             {"nonsense", "platform", "exit now", " ", "RegisterChannel x"}) {
            EXPECT_EQ(Status::kSuccess, SocketCommand(message));
            EXPECT_EQ(L"", CommandHandler::GetReply());
        }
        EXPECT_THAT(Printed(), IsEmpty());
    });
}

// --- The commands about the service, the user and the system

TEST(Exit, IsAQuitRequestWhateverFollows) {
    Quietly([] {
        EXPECT_EQ(Status::kQuitRequested, Command(L"exit"));
        EXPECT_EQ(Status::kQuitRequested, Command(L"exit please"));
        EXPECT_EQ(Status::kQuitRequested, Command(L"exitX"));
        EXPECT_EQ(Status::kQuitRequested, Command(L"exitNow a b c"));
        EXPECT_EQ(L"", CommandHandler::GetReply());
        EXPECT_THAT(Printed(), IsEmpty());
    });
}

TEST(Update, WithAWrongNumberOfWords_IsASyntaxErrorAndNothingIsRecorded) {
    Quietly([] {
        AnswerFor("groups=80(admin)");
        for (const wchar_t* const message : {L"update", L"update /one /two", L"update  /one"}) {
            EXPECT_EQ(Status::kSyntaxError, Command(message));
            EXPECT_EQ(L"Wrong number of arguments, expected: 1", Helpers::getLastLog());
            EXPECT_FALSE(Updater::updateRequested);
            EXPECT_FALSE(Updater::TryInstallUpdate());
        }
        EXPECT_EQ(3u, Printed().size()) << "nothing but these lines";
        EXPECT_FALSE(Exists(Home() + "/asked"));
    });
}

TEST(Update, WithAFolder_IsRecordedAndEndsTheService) {
    Quietly([] {
        EXPECT_EQ(Status::kEndService, Command(L"update /one"));
        EXPECT_TRUE(Updater::updateRequested);
        EXPECT_THAT(Printed(), IsEmpty());
    });
}

TEST(StartupItem, IsSetByItsPathAndRemovedByItsName) {
    InChild([] {
        const auto dock = CFOwner<CFStringRef>::Adopt(
            Helpers::wstringToCFString(L"/Applications/Tessel Dock/Tessel Dock.app"));
        EXPECT_EQ(0, CommandHandler::SetAsStartupItem());
        EXPECT_TRUE(CFPreferencesManager::CheckIfStartupItem(dock.Get()));
        EXPECT_EQ(0, CommandHandler::SetAsStartupItem());
        EXPECT_EQ(0, CommandHandler::RemoveAsStartupItem());
        EXPECT_FALSE(CFPreferencesManager::CheckIfStartupItem(dock.Get()));
        EXPECT_EQ(0, CommandHandler::RemoveAsStartupItem());
    });
}

TEST(DockUpdateFinished, SucceedsWithAnEmptyText) {
    Quietly([] {
        EXPECT_EQ(Status::kSuccess, Command(L"dockUpdateFinished"));
        EXPECT_EQ(Status::kSuccess, Command(L"dockUpdateFinished a b"));
        EXPECT_EQ(L"", CommandHandler::GetReply());
        EXPECT_THAT(Printed(), IsEmpty());
    });
}

struct Right {
    const wchar_t* command;
    const wchar_t* key;
};

// What the test runner writes behind the test's name.
void PrintTo(const Right& right, std::ostream* stream) {
    *stream << Helpers::wstringToString(right.command);
}

class Rights : public testing::TestWithParam<Right> {};

INSTANTIATE_TEST_SUITE_P(
    Commands, Rights,
    testing::Values(Right{L"userCanPerformDockUpdate", L"UserCanPerformDockUpdate="},
                    Right{L"userCanAdministerAirApps", L"UserCanAdministerAirApps="},
                    Right{L"userCanAdministerNativeApps", L"UserCanAdministerNativeApps="}),
    [](const testing::TestParamInfo<Right>& itsInfo) {
        return Helpers::wstringToString(itsInfo.param.command);
    });

TEST_P(Rights, AreThoseOfAnAdministrator) {
    const Right right = GetParam();
    for (const bool isAdmin : {true, false}) {
        InChild([right, isAdmin] {
            AnswerFor(isAdmin ? "groups=80(admin)" : "groups=20(staff)");
            EXPECT_EQ(Status::kSuccess, Command(right.command));
            EXPECT_EQ(std::wstring(right.key) + (isAdmin ? L"true" : L"false"),
                      CommandHandler::GetReply());
        });
    }
}

TEST_P(Rights, TakeNoArguments) {
    const Right right = GetParam();
    Quietly([right] {
        AnswerFor("groups=80(admin)");
        EXPECT_EQ(Status::kSyntaxError, Command(std::wstring(right.command) + L" x"));
        EXPECT_EQ(L"", CommandHandler::GetReply());
        EXPECT_THAT(Printed(), ElementsAre("Wrong number of arguments, expected: 0"));
        EXPECT_FALSE(Exists(Home() + "/asked"));
    });
}

TEST(Rights, OfAllKinds_AreOneAndTheSameQuestion) {
    InChild([] {
        AnswerFor("groups=80(admin)");
        Command(L"userCanPerformDockUpdate");
        Command(L"userCanAdministerAirApps");
        Command(L"userCanAdministerNativeApps");
        EXPECT_EQ(1u, Lines(ReadFile(Home() + "/asked")).size());
        EXPECT_EQ(L"UserCanAdministerNativeApps=true", CommandHandler::GetReply());
    });
}

TEST(GetCommonUserDir, IsTheFolderOfAllUsersWhateverFollows) {
    EXPECT_EQ(Status::kSuccess, Command(L"getCommonUserDir"));
    EXPECT_EQ(L"CommonUserDir=/Users/Shared/Velto/", CommandHandler::GetReply());
    EXPECT_EQ(Status::kSuccess, Command(L"getCommonUserDir a b"));
    EXPECT_EQ(L"CommonUserDir=/Users/Shared/Velto/", CommandHandler::GetReply());
    EXPECT_STREQ(L"/Users/Shared/Velto/", CommandHandler::commonUserDir);
}

TEST(GetCoreVersion, IsTheVersionWhateverFollows) {
    EXPECT_EQ(Status::kSuccess, Command(L"getCoreVersion"));
    EXPECT_EQ(L"CoreVersion=2.07.0", CommandHandler::GetReply());
    EXPECT_EQ(Status::kSuccess, Command(L"getCoreVersion a b"));
    EXPECT_EQ(L"CoreVersion=2.07.0", CommandHandler::GetReply());
}

TEST(CreateUUID, IsAnotherOneEveryTime) {
    EXPECT_EQ(Status::kSuccess, Command(L"createUUID"));
    const std::wstring first = CommandHandler::GetReply();
    EXPECT_EQ(Status::kSuccess, Command(L"createUUID"));
    const std::wstring second = CommandHandler::GetReply();
    EXPECT_EQ(L"UUID={", first.substr(0, 6));
    EXPECT_EQ(5u + 38u, first.size());
    EXPECT_EQ(L'}', first.back());
    EXPECT_NE(first, second);
}

TEST(CreateUUID, TakesNoArguments) {
    Quietly([] {
        EXPECT_EQ(Status::kSyntaxError, Command(L"createUUID x"));
        EXPECT_THAT(Printed(), ElementsAre("Wrong number of arguments, expected: 0"));
        EXPECT_EQ(L"", CommandHandler::GetReply());
    });
}

TEST(CheckExists, IsYesOrNo) {
    InChild([] {
        WriteFile(Home() + "/My Disk", "");
        const std::wstring home = Helpers::stringToWString(Home());
        EXPECT_EQ(Status::kYes, Command(L"checkExists " + home));
        EXPECT_EQ(Status::kYes, Command(L"checkExists '" + home + L"/My Disk'"));
        EXPECT_EQ(Status::kNo, Command(L"checkExists " + home + L"/nothing"));
        EXPECT_EQ(L"", CommandHandler::GetReply());
    });
}

TEST(CheckExists, TakesOneArgument) {
    Quietly([] {
        for (const wchar_t* const message :
             {L"checkExists", L"checkExists /a b", L"checkExists  /a", L"checkExists ''"}) {
            EXPECT_EQ(Status::kSyntaxError, Command(message));
            EXPECT_THAT(Printed(), ElementsAre("Wrong number of arguments, expected: 1"));
        }
    });
}

TEST(Platform, IsTheMacsWhateverFollows) {
    for (const wchar_t* const message : {L"platform", L"platform x y", L"platforms"}) {
        EXPECT_EQ(Status::kSuccess, Command(message));
        EXPECT_EQ(L"MACOSX", CommandHandler::GetReply());
    }
}

TEST(GetLocalCountryCode, IsThatOfTheTimeZoneAndBothAreLogged) {
    Quietly([] {
        ASSERT_EQ(0, setenv("TZ", "Europe/Zurich", 1));
        EXPECT_EQ(Status::kSuccess, Command(L"getLocalCountryCode"));
        EXPECT_EQ(L"LocalCountryCode=CH", CommandHandler::GetReply());
        EXPECT_THAT(Printed(), ElementsAre("Time zone: Europe/Zurich", "Country code: CH"));
        ASSERT_EQ(0, setenv("TZ", "Asia/Tokyo", 1));
        EXPECT_EQ(Status::kSuccess, Command(L"getLocalCountryCode"));
        EXPECT_EQ(L"LocalCountryCode=JP", CommandHandler::GetReply());
    });
}

TEST(GetLocalCountryCode, OfNoCountrysZone_IsXX) {
    InChild([] {
        ASSERT_EQ(0, setenv("TZ", "UTC", 1));
        EXPECT_EQ(Status::kSuccess, Command(L"getLocalCountryCode"));
        EXPECT_EQ(L"LocalCountryCode=XX", CommandHandler::GetReply());
    });
}

TEST(GetLocalCountryCode, TakesNoArguments) {
    Quietly([] {
        EXPECT_EQ(Status::kSyntaxError, Command(L"getLocalCountryCode x"));
        EXPECT_THAT(Printed(), ElementsAre("Wrong number of arguments, expected: 0"));
    });
}

TEST(FixPermissions, OutsideTheSharedFolder_IsASyntaxErrorWithoutALine) {
    Quietly([] {
        WriteFile(Home() + "/file", "");
        ASSERT_EQ(0, chmod((Home() + "/file").c_str(), 0600));
        const std::wstring file = Helpers::stringToWString(Home() + "/file");
        for (const std::wstring& path :
             {file, std::wstring(L"/etc/hosts"), std::wstring(L"/Users/Shared/Velto"),
              std::wstring(L"/Users/Shared/Velto/../x"), std::wstring(L"/Users/Shared/Velto/a..b"),
              std::wstring(L"/users/shared/velto/x"), std::wstring(L" ")}) {
            EXPECT_EQ(Status::kSyntaxError, Command(L"fixFilePermissions '" + path + L"'"));
            EXPECT_EQ(Status::kSyntaxError, Command(L"fixDirectoryPermissions '" + path + L"'"));
        }
        EXPECT_THAT(Printed(), IsEmpty());
        EXPECT_EQ(L"", CommandHandler::GetReply());
        struct stat status;
        ASSERT_EQ(0, stat((Home() + "/file").c_str(), &status));
        EXPECT_EQ(0600u, status.st_mode & 07777);
    });
}

TEST(FixPermissions, ThatTheSystemRefuses_SucceedsWithoutTheKey) {
    Quietly([] {
        EXPECT_EQ(Status::kSuccess,
                  Command(L"fixFilePermissions /Users/Shared/Velto/certainly/not/there"));
        EXPECT_EQ(L"", CommandHandler::GetReply());
        EXPECT_EQ(Status::kSuccess,
                  Command(L"fixDirectoryPermissions /Users/Shared/Velto/certainly/not/there"));
        EXPECT_EQ(L"", CommandHandler::GetReply());
        EXPECT_THAT(Printed(), IsEmpty());
    });
}

TEST(FixPermissions, TakesOneArgument) {
    Quietly([] {
        for (const wchar_t* const message : {L"fixFilePermissions", L"fixDirectoryPermissions",
                                             L"fixFilePermissions /Users/Shared/Velto/a b",
                                             L"fixDirectoryPermissions /Users/Shared/Velto/a b"}) {
            EXPECT_EQ(Status::kSyntaxError, Command(message));
            EXPECT_THAT(Printed(), ElementsAre("Wrong number of arguments, expected: 1"));
        }
    });
}

}  // namespace
