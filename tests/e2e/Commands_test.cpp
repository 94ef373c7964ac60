// The commands, one by one, as an authorized client sees them.
#include <gmock/gmock.h>

#include "support/Files.h"
#include "support/Service.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

constexpr char kShared[] = "/Users/Shared/Velto";

class Commands : public testing::Test {
  protected:
    Commands() { service.WaitUntilListening(); }

    std::string Ask(const std::string& command) { return client.Ask(command); }

    // The reply's reason, with whatever the system's error text is behind it.
    static auto SyntaxError(const std::string& reason) {
        return StartsWith("SyntaxError " + reason + " - ");
    }
    static auto WrongNumber(int expected) {
        return SyntaxError("Wrong number of arguments, expected: " + std::to_string(expected));
    }

    // Without the dock the service asks at its start whether the user may remove it.
    static Sandbox& WithDock(Sandbox& place) {
        place.MakeUsersFolder(Service::kDock);
        return place;
    }

    Sandbox sandbox;
    Service service{WithDock(sandbox)};
    Client client = service.WaitUntilListening().Authorized();
};

TEST_F(Commands, Platform_IsTheMacsWhateverFollows) {
    EXPECT_EQ(Ask("platform"), "Success MACOSX");
    EXPECT_EQ(Ask("platform x y"), "Success MACOSX");
}

TEST_F(Commands, AName_IsRecognisedByItsBeginning) {
    EXPECT_EQ(Ask("platforms"), "Success MACOSX");
    EXPECT_EQ(Ask("platform\tx"), "Success MACOSX");
    EXPECT_EQ(Ask("plat\"form\""), "Success MACOSX");
    EXPECT_EQ(Ask("'platform' x"), "Success MACOSX");
}

TEST_F(Commands, AnUnknownName_IsASyntaxError) {
    for (const char* const unknown :
         {"nonsense", "Platform", "platfor", " platform", "\tplatform", "   ", "\"\" platform",
          "auth", "nonsense with words", "日本"}) {
        EXPECT_THAT(Ask(unknown), SyntaxError("Unknown command")) << unknown;
    }
}

TEST_F(Commands, NoWordsAtAll_AreASyntaxError) {
    EXPECT_THAT(Ask(""), SyntaxError("No command found."));
    EXPECT_THAT(Ask("\"\""), SyntaxError("No command found."));
    EXPECT_THAT(Ask("'"), SyntaxError("No command found."));
}

TEST_F(Commands, GetCoreVersion_TellsIt) {
    EXPECT_EQ(Ask("getCoreVersion"), "Success CoreVersion=2.07.0");
    EXPECT_EQ(Ask("getCoreVersion now please"), "Success CoreVersion=2.07.0");
}

TEST_F(Commands, GetCommonUserDir_TellsTheSharedFolder) {
    EXPECT_EQ(Ask("getCommonUserDir"), "Success CommonUserDir=/Users/Shared/Velto/");
    EXPECT_EQ(Ask("getCommonUserDir x"), "Success CommonUserDir=/Users/Shared/Velto/");
}

TEST_F(Commands, DockUpdateFinished_SucceedsWithAnEmptyText) {
    client.Send("dockUpdateFinished|dockUpdateFinished now|");
    EXPECT_EQ(client.ReceiveExactBytes(18), "Success |Success |");
    client.ExpectSilence();
}

TEST_F(Commands, AnEmptyText_IsNotTheTextOfTheCommandBefore) {
    EXPECT_EQ(Ask("platform"), "Success MACOSX");
    EXPECT_EQ(Ask("dockUpdateFinished"), "Success ");
}

TEST_F(Commands, CreateUUID_IsAnotherOneEveryTime) {
    const auto form = testing::MatchesRegex(
        "Success UUID=\\{[0-9A-Fa-f]{8}(-[0-9A-Fa-f]{4}){3}-[0-9A-Fa-f]{12}\\}");
    const std::string first = Ask("createUUID");
    const std::string second = Ask("createUUID");
    EXPECT_THAT(first, form);
    EXPECT_THAT(second, form);
    EXPECT_NE(first, second);
    EXPECT_THAT(Ask("createUUID x"), WrongNumber(0));
}

TEST_F(Commands, CheckExists_TellsFilesFoldersAndLinksFromNothing) {
    sandbox.MakeUsersFile("/Users/Shared/My Disk/it's", "");
    std::filesystem::create_symlink("/nowhere", sandbox.Outside("/Users/Shared/dangling"));
    EXPECT_EQ(Ask("checkExists /Users/Shared"), "True");
    EXPECT_EQ(Ask("checkExists '/Users/Shared/My Disk'"), "True");
    EXPECT_EQ(Ask("checkExists \"/Users/Shared/My Disk/it's\""), "True");
    EXPECT_EQ(Ask("checkExists '/Users/Shared/My Disk/it'\"'\"'s'"), "True");
    EXPECT_EQ(Ask("checkExists /Users/Shared/dangling"), "True");
    EXPECT_EQ(Ask("checkExists /Users/Shared/nothing"), "False");
    EXPECT_EQ(Ask("checkExists '/Users/Shared/My Disk/it is not'"), "False");
    EXPECT_EQ(Ask("checkExists \"\" "), "False");
}

TEST_F(Commands, AQuoteThatIsNeverClosed_TakesTheRest) {
    sandbox.MakeUsersFile("/Users/Shared/My Disk/file", "");
    EXPECT_EQ(Ask("checkExists '/Users/Shared/My Disk/file"), "True");
}

TEST_F(Commands, CheckExists_TakesAPathAsUtf8) {
    sandbox.MakeUsersFile("/Users/Shared/Bücher/日本🖊", "");
    EXPECT_EQ(Ask("checkExists /Users/Shared/Bücher/日本🖊"), "True");
    EXPECT_EQ(Ask("checkExists /Users/Shared/Bücher/日本"), "False");
}

TEST_F(Commands, CheckExists_WhatCannotBeLookedAtExists) {
    sandbox.MakeUsersFile("/Users/Shared/closed/file", "");
    std::filesystem::permissions(sandbox.Outside("/Users/Shared/closed"),
                                 std::filesystem::perms::none);
    EXPECT_EQ(Ask("checkExists /Users/Shared/closed/file"), "True");
    EXPECT_EQ(Ask("checkExists /Users/Shared/closed/nothing"), "True");
    EXPECT_EQ(Ask("checkExists /etc/passwd/x"), "True");
    EXPECT_EQ(Ask("checkExists /" + std::string(300, 'x')), "True");
}

TEST_F(Commands, CheckExists_WithAnotherNumberOfWordsIsASyntaxError) {
    EXPECT_THAT(Ask("checkExists"), WrongNumber(1));
    EXPECT_THAT(Ask("checkExists /a /b"), WrongNumber(1));
    EXPECT_THAT(Ask("checkExists  /a"), WrongNumber(1));
    EXPECT_THAT(Ask("checkExists ''"), WrongNumber(1));
}

TEST_F(Commands, FixDirectoryPermissions_OpensAFolderToEverybody) {
    const std::string folder = std::string(kShared) + "/App Data";
    sandbox.MakeUsersFolder(folder);
    std::filesystem::permissions(sandbox.Outside(folder), std::filesystem::perms(0700));
    EXPECT_EQ(Ask("fixDirectoryPermissions \"" + folder + "\""),
              "Success DirectoryPermissionsFixed=" + folder);
    EXPECT_EQ(ModeOf(sandbox.Outside(folder)), 0777U);
}

TEST_F(Commands, FixFilePermissions_OpensAFileToEverybody) {
    const std::string file = std::string(kShared) + "/settings-ü.xml";
    sandbox.MakeUsersFile(file, "");
    std::filesystem::permissions(sandbox.Outside(file), std::filesystem::perms(0600));
    EXPECT_EQ(Ask("fixFilePermissions " + file),
              "Success FilePermissionsFixed=/Users/Shared/Velto/settings-?.xml");
    EXPECT_EQ(ModeOf(sandbox.Outside(file)), 0666U);
}

TEST_F(Commands, FixPermissions_OfTheSharedFolderItselfNeedsItsSlash) {
    sandbox.MakeUsersFolder(kShared);
    EXPECT_EQ(Ask("fixDirectoryPermissions /Users/Shared/Velto/"),
              "Success DirectoryPermissionsFixed=/Users/Shared/Velto/");
    EXPECT_EQ(ModeOf(sandbox.Outside(kShared)), 0777U);
    EXPECT_THAT(Ask("fixDirectoryPermissions /Users/Shared/Velto"),
                SyntaxError("fixDirectoryPermissions /Users/Shared/Velto"));
}

TEST_F(Commands, FixPermissions_OutsideTheSharedFolderIsASyntaxErrorWithTheLineBefore) {
    sandbox.MakeUsersFile("/Users/Shared/outside", "");
    std::filesystem::permissions(sandbox.Outside("/Users/Shared/outside"),
                                 std::filesystem::perms(0600));
    for (const char* const command :
         {"fixFilePermissions /etc/hosts", "fixFilePermissions /Users/Shared/outside",
          "fixFilePermissions /Users/Shared/Velto/../outside",
          "fixFilePermissions /Users/Shared/Velto/a..b", "fixFilePermissions Users/Shared/Velto/x",
          "fixDirectoryPermissions /", "fixDirectoryPermissions ~/Velto",
          "fixFilePermissions /users/shared/velto/x"}) {
        EXPECT_THAT(Ask(command), SyntaxError(command));
    }
    EXPECT_EQ(ModeOf(sandbox.Outside("/Users/Shared/outside")), 0600U);
}

TEST_F(Commands, FixPermissions_ThatTheSystemRefusesSucceedsWithoutTheKey) {
    EXPECT_EQ(Ask("fixFilePermissions /Users/Shared/Velto/nothing"), "Success ");
    EXPECT_EQ(Ask("fixDirectoryPermissions /Users/Shared/Velto/nothing"), "Success ");
    if (Sandbox::CanSwitchUsers()) {
        sandbox.MakeUsersFile("/Users/Shared/Velto/roots", "");
        ASSERT_EQ(chown(sandbox.Outside("/Users/Shared/Velto/roots").c_str(), 0, 0), 0);
        EXPECT_EQ(Ask("fixFilePermissions /Users/Shared/Velto/roots"), "Success ");
    }
}

TEST_F(Commands, FixPermissions_WithAnotherNumberOfWordsIsASyntaxError) {
    EXPECT_THAT(Ask("fixDirectoryPermissions"), WrongNumber(1));
    EXPECT_THAT(Ask("fixFilePermissions /Users/Shared/Velto/a /Users/Shared/Velto/b"),
                WrongNumber(1));
}

TEST_F(Commands, UserCan_IsFalseForAnOrdinaryUser) {
    EXPECT_EQ(Ask("userCanPerformDockUpdate"), "Success UserCanPerformDockUpdate=false");
    EXPECT_EQ(Ask("userCanAdministerAirApps"), "Success UserCanAdministerAirApps=false");
    EXPECT_EQ(Ask("userCanAdministerNativeApps"), "Success UserCanAdministerNativeApps=false");
}

TEST_F(Commands, UserCan_IsTrueForAMemberOfAdmin) {
    sandbox.AddGroup("admin", 80);
    EXPECT_EQ(Ask("userCanPerformDockUpdate"), "Success UserCanPerformDockUpdate=true");
    EXPECT_EQ(Ask("userCanAdministerAirApps"), "Success UserCanAdministerAirApps=true");
    EXPECT_EQ(Ask("userCanAdministerNativeApps"), "Success UserCanAdministerNativeApps=true");
    service.WaitForOutput("ProcessOpenManager::open : 'id 1000'\nreceived: \n");
}

TEST_F(Commands, UserCan_AsksOnceInALife) {
    EXPECT_EQ(Ask("userCanPerformDockUpdate"), "Success UserCanPerformDockUpdate=false");
    sandbox.AddGroup("admin", 80);
    EXPECT_EQ(Ask("userCanAdministerAirApps"), "Success UserCanAdministerAirApps=false");
    EXPECT_EQ(CountOf(service.Output(), "ProcessOpenManager::open"), 1U);
}

TEST_F(Commands, UserCan_NeedsNumberAndNameOfTheGroup) {
    sandbox.AddGroup("administrators", 80);
    sandbox.AddGroup("admin", 81);
    EXPECT_EQ(Ask("userCanPerformDockUpdate"), "Success UserCanPerformDockUpdate=false");
}

TEST_F(Commands, UserCan_WithArgumentsIsASyntaxErrorAndAsksNobody) {
    EXPECT_THAT(Ask("userCanPerformDockUpdate x"), WrongNumber(0));
    EXPECT_THAT(Ask("userCanAdministerAirApps x"), WrongNumber(0));
    EXPECT_THAT(Ask("userCanAdministerNativeApps x y"), WrongNumber(0));
    EXPECT_EQ(CountOf(service.Output(), "ProcessOpenManager::open"), 0U);
}

TEST_F(Commands, ShellCommands_InheritNoneOfTheServicesDescriptors) {
    sandbox.InstallStandIn("id");
    sandbox.MakeUsersFile(Service::kLogFile, "");
    Service logging(sandbox);
    logging.WaitUntilListening();
    Client other = logging.ConnectToApps();
    other.Ask("hello");
    logging.Authorized().Ask("userCanPerformDockUpdate");
    const std::string descriptors = ReadFile(sandbox.Outside("/tmp/id.descriptors"));
    // Beside the standard ones, only the folder in which the list was found.
    EXPECT_EQ(CountOf(descriptors, " -> "), 4U) << descriptors;
    EXPECT_THAT(descriptors, testing::ContainsRegex(" 3 -> /proc/[0-9]+/fd\n"));
}

TEST_F(Commands, Exit_IsAcknowledgedAndPausesButClosesNothing) {
    for (const char* const command : {"exit", "exit please", "exitX"}) {
        EXPECT_EQ(Ask(command), "QuitAcknowledged");
        const auto acknowledged = std::chrono::steady_clock::now();
        EXPECT_EQ(Ask("platform"), "Success MACOSX");
        EXPECT_GE(std::chrono::steady_clock::now() - acknowledged, std::chrono::milliseconds(900));
    }
}

TEST_F(Commands, WhatFollowsExitInItsPacket_IsDropped) {
    client.Send("exit|platform|getCommonUserDir|");
    EXPECT_EQ(client.Receive(), "QuitAcknowledged");
    EXPECT_EQ(Ask("getCoreVersion"), "Success CoreVersion=2.07.0");
    client.ExpectSilence();
}

TEST_F(Commands, ThatAskForANumberOfWords_AreKnownAndSayHowMany) {
    const std::pair<const char*, int> commands[] = {{"update", 1},
                                                    {"getIcon", 1},
                                                    {"getIcon  /Applications/X.app", 1},
                                                    {"uninstallAirApp 1", 2},
                                                    {"installAirApp 1 a", 3},
                                                    {"upgradeAirApp 1 a", 3},
                                                    {"isAirAppInstalled 1", 2},
                                                    {"installNativeApp 1 a", 3},
                                                    {"uninstallNativeApp 1", 2},
                                                    {"upgradeNativeApp 1 a", 3},
                                                    {"isNativeAppInstalled 1", 2},
                                                    {"startNativeApplication 1", 2},
                                                    {"stopNativeApplication 1", 2},
                                                    {"isNativeAppRunning 1", 2}};
    for (const auto& [command, expected] : commands) {
        EXPECT_THAT(Ask(command), WrongNumber(expected)) << command;
    }
    // An update without a path is none: the service goes on.
    EXPECT_EQ(Ask("platform"), "Success MACOSX");
}

TEST_F(Commands, AssociateFileTypes_AloneIsASyntaxErrorWithTheLineBefore) {
    EXPECT_THAT(Ask("associateFileTypes"), SyntaxError("associateFileTypes"));
    EXPECT_THAT(Ask("unassociateFileTypes"), SyntaxError("unassociateFileTypes"));
}

TEST_F(Commands, OfThePressurePort_AreAnsweredThere) {
    Client pressure = service.ConnectToPressure();
    EXPECT_THAT(pressure.Ask(""), SyntaxError("No command found."));
    EXPECT_THAT(pressure.Ask("platform"), SyntaxError("Unknown command"));
    EXPECT_THAT(pressure.Ask("nonsense"), SyntaxError("Unknown command"));
    EXPECT_THAT(Ask("getDriverVersion"), SyntaxError("Unknown command"));
}

TEST_F(Commands, OfTheAppsPort_SucceedWithNothingDoneWhenUnknown) {
    Client apps = service.ConnectToApps();
    EXPECT_EQ(apps.Ask("platform"), "Success ");
    EXPECT_EQ(apps.Ask("nonsense"), "Success ");
    EXPECT_THAT(apps.Ask(""), SyntaxError("No command found."));
    EXPECT_THAT(Ask("registerChannel x"), SyntaxError("Unknown command"));
}

}  // namespace
