// Applications removed through the command port, by the service itself and, where it may not, by a
// script with an administrator's rights.
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>

#include "support/Applications.h"
#include "support/Files.h"
#include "support/ProgramRun.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace fs = std::filesystem;

constexpr char kApp[] = "/Applications/Notes.app";
constexpr char kUninstall[] = "uninstallAirApp Notes com.example.notes";
constexpr char kUninstalled[] = "Success AirAppUninstallStarted=Notes";
constexpr char kNotUninstalled[] = "Success AirAppUninstallFailed=Notes";

class Removal : public ApplicationsTest {
  protected:
    explicit Removal(std::vector<std::string> more = {}) : ApplicationsTest(std::move(more)) {
        sandbox.GiveToUser("/Applications");
        MakeApplication(sandbox, kApp, {"com.example.notes"});
        InstallTool(sandbox, kPkexec, kAgrees);
    }

    static std::string In(const std::string& path) { return std::string(kApp) + "/" + path; }
    bool Exists(const std::string& path) const {
        return fs::exists(fs::symlink_status(sandbox.Outside(path)));
    }
};

TEST_F(Removal, EveryStep_IsLoggedByItsDepth) {
    fs::remove_all(sandbox.Outside(In("Contents/MacOS")));
    sandbox.MakeUsersFolder(In("Contents/empty"));
    std::vector<std::string> lines = Lines(PrintedFor(kUninstall, kUninstalled));
    ASSERT_EQ(lines.size(), 6U);
    // The File Manager's order is its own.
    std::sort(lines.begin() + 2, lines.begin() + 4);
    EXPECT_THAT(lines,
                ElementsAre("  Deleting folder: /Applications/Notes.app",
                            "      Deleting folder: /Applications/Notes.app/Contents",
                            "          Deleting file: /Applications/Notes.app/Contents/Info.plist",
                            "          Deleting file: /Applications/Notes.app/Contents/empty",
                            "UninstallAirApp: Uninstallation started for Notes",
                            "found item unregistration res: fnfErr"));
    EXPECT_FALSE(Exists(kApp));
}

TEST_F(Removal, OfFilesBesideFolders_IndentsTheFilesBySixAndTheFoldersLineBySixAsWell) {
    sandbox.MakeUsersFile(In("readme"), "");
    EXPECT_THAT(PrintedFor(kUninstall, kUninstalled),
                AllOf(StartsWith("  Deleting folder: /Applications/Notes.app\n"),
                      HasSubstr("\n      Deleting file: /Applications/Notes.app/readme\n"),
                      HasSubstr("\n      Deleting folder: /Applications/Notes.app/Contents\n")));
}

TEST_F(Removal, OfTwoThousandFiles_SomeReadOnlyAndOddlyNamed_LeavesNothing) {
    for (int folder = 0; folder < 20; ++folder) {
        const std::string path = In("Contents/folder " + std::to_string(folder));
        sandbox.MakeUsersFolder(path);
        for (int file = 0; file < 100; ++file) {
            const std::string name = path + "/" + std::to_string(file) + " \"it's\" Größe";
            sandbox.MakeUsersFile(name, "x");
            if (file % 10 == 0) {
                fs::permissions(sandbox.Outside(name), fs::perms(0400));
            }
        }
    }
    sandbox.MakeUsersFile(In("line\nbreak"), "");
    sandbox.MakeUsersFile(In("\xFF\xFE"), "");
    EXPECT_EQ(CountOf(PrintedFor(kUninstall, kUninstalled), "Deleting file: "), 2004U);
    EXPECT_FALSE(Exists(kApp));
    EXPECT_EQ(CallsOf(sandbox, "pkexec"), "");
}

TEST_F(Removal, OfLinks_LeavesWhatTheyPointTo) {
    sandbox.MakeUsersFile("/Users/anna/precious/file", "x");
    fs::create_symlink("/Users/anna/precious", sandbox.Outside(In("folder")));
    fs::create_symlink("/Users/anna/precious/file", sandbox.Outside(In("Contents/file")));
    fs::create_symlink("/nowhere", sandbox.Outside(In("Contents/nowhere")));
    EXPECT_EQ(Ask(kUninstall), kUninstalled);
    EXPECT_FALSE(Exists(kApp));
    EXPECT_TRUE(Exists("/Users/anna/precious/file"));
}

TEST_F(Removal, ThatNeedsAnAdministrator_RunsAScript) {
    Protect(sandbox, In("Contents/MacOS"));
    const std::string script = std::string(kTemporaryFolder) + "TesselAppNotes.sh";
    EXPECT_THAT(PrintedFor(kUninstall, kUninstalled),
                HasSubstr("UninstallAirApp: Unable to uninstall without privileges Notes\n"
                          "Starting script to uninstall Notes\n"
                          " -GenerateRemoveDirectoryScriptFile: /Applications/Notes.app\n"
                          "GenerateScript: Starting script generation\nTarget path:" +
                          script +
                          "\n\nScript exit code: 0\nScript exit result code: noErr\n"
                          "UninstallAirApp: Uninstallation started for Notes\n"
                          "found item unregistration res: fnfErr\n"));
    EXPECT_EQ(ReadFile(sandbox.Outside(script)), "#!/bin/sh \nrm -rf '/Applications/Notes.app'\n");
    EXPECT_EQ(ModeOf(sandbox.Outside(script)), 0777U);
    EXPECT_EQ(CallsOf(sandbox, "pkexec"),
              "--disable-internal-agent|--keep-cwd|/bin/sh|" + script + "|\n");
    EXPECT_FALSE(Exists(kApp));
    EXPECT_EQ(Ask("isAirAppInstalled Notes com.example.notes"),
              "Success AirAppIsNotInstalled=Notes");
}

// Nothing in it is busy, and waiting would not help.
TEST_F(Removal, OfAFolderThatTheUserCannotLookInto_AsksForAnAdministratorAtOnce) {
    sandbox.MakeUsersFile(In("Contents/closed/file"), "");
    fs::permissions(sandbox.Outside(In("Contents/closed")), fs::perms::none);
    InstallTool(sandbox, kPkexec, std::string("chmod 0700 ") + In("Contents/closed\n") + kAgrees);
    EXPECT_THAT(
        PrintedFor(kUninstall, kUninstalled),
        AllOf(HasSubstr("Unable to remove object, error afpAccessDenied\n"),
              Not(HasSubstr("fBsyErr")),
              HasSubstr("UninstallAirApp: Unable to uninstall without privileges Notes\n")));
    EXPECT_FALSE(Exists(kApp));
}

TEST_F(Removal, WhenTheDialogIsDismissed_FailsAndTheApplicationIsThere) {
    Protect(sandbox, In("Contents/MacOS"));
    InstallTool(sandbox, kPkexec, "exit 126\n");
    EXPECT_THAT(PrintedFor("uninstallNativeApp Notes com.example.notes",
                           "Success NativeAppUninstallFailed=Notes"),
                HasSubstr("AuthorizeScript: Authorization failed, or script encountered errors: "
                          "-60006\nUninstallAirApp: Uninstallation started for Notes\n"));
    EXPECT_TRUE(Exists(In("Contents/MacOS/Program")));
}

TEST_F(Removal, OfANameWithAnApostrophe_BreaksTheScriptAndDeletesNothingElse) {
    fs::rename(sandbox.Outside(kApp), sandbox.Outside("/Applications/Anna's Notes.app"));
    Protect(sandbox, "/Applications/Anna's Notes.app/Contents/MacOS");
    sandbox.MakeUsersFile("/Applications/Anna", "");
    EXPECT_EQ(Ask(kUninstall), kNotUninstalled);
    EXPECT_EQ(ReadFile(sandbox.Outside(std::string(kTemporaryFolder) + "TesselAppNotes.sh")),
              "#!/bin/sh \nrm -rf '/Applications/Anna's Notes.app'\n");
    EXPECT_TRUE(Exists("/Applications/Anna"));
    EXPECT_TRUE(Exists("/Applications/Anna's Notes.app/Contents/MacOS/Program"));
}

TEST_F(Removal, OfANameWithOtherLetters_ReachesTheScriptAsItIs) {
    fs::rename(sandbox.Outside(kApp), sandbox.Outside("/Applications/Größe 日本.app"));
    Protect(sandbox, "/Applications/Größe 日本.app/Contents/MacOS");
    EXPECT_EQ(Ask("uninstallAirApp Größe com.example.notes"),
              "Success AirAppUninstallStarted=Gr??e");
    EXPECT_EQ(ReadFile(sandbox.Outside(std::string(kTemporaryFolder) + "TesselAppGr??e.sh")),
              "#!/bin/sh \nrm -rf '/Applications/Größe 日本.app'\n");
    EXPECT_FALSE(Exists("/Applications/Größe 日本.app"));
}

// A name that is not UTF-8 is still a name.
TEST_F(Removal, OfANameInAnotherEncoding_ThatFails_SaysSo) {
    fs::rename(sandbox.Outside(kApp), sandbox.Outside("/Applications/Gr\xF6\xDF"
                                                      "e.app"));
    Protect(sandbox,
            "/Applications/Gr\xF6\xDF"
            "e.app/Contents/MacOS");
    InstallTool(sandbox, kPkexec, "exit 126\n");
    EXPECT_EQ(Ask(kUninstall), kNotUninstalled);
}

TEST_F(Removal, OfAnIdThatMatchesNothing_SucceedsAndTouchesNothing) {
    EXPECT_EQ(PrintedFor("uninstallAirApp Notes com.example.other", kUninstalled),
              "UninstallAirApp: Uninstallation started for Notes\n"
              "found item unregistration res: fnfErr\n");
    EXPECT_TRUE(Exists(kApp));
}

TEST_F(Removal, WithAnEmptyWord_Succeeds) {
    EXPECT_EQ(
        PrintedFor("uninstallAirApp ' ' com.example.notes", "Success AirAppUninstallStarted= "),
        "UninstallAirApp: Argument null or empty.\n");
    EXPECT_THAT(Ask("uninstallAirApp Notes ''"),
                StartsWith("SyntaxError Wrong number of arguments, expected: 2 - "));
    EXPECT_TRUE(Exists(kApp));
}

TEST_F(Removal, OfARunningApplication_RemovesItsFolderAndLeavesItRunning) {
    Ask("startAirApplication Notes com.example.notes");
    WaitUntil("it runs", [&] { return StartsOf(sandbox, "Notes").size() == 1; });
    EXPECT_EQ(Ask(kUninstall), kUninstalled);
    EXPECT_FALSE(Exists(kApp));
    EXPECT_TRUE(IsRunning(sandbox, StartsOf(sandbox, "Notes").at(0)));
}

TEST_F(Removal, WhileItTakesItsTime_ThePressurePortAnswers) {
    Client pressure = service.ConnectToPressure();
    const auto asked = std::chrono::steady_clock::now();
    client.Send(std::string(kUninstall) + "|");
    int answers = 0;
    while (std::chrono::steady_clock::now() - asked < std::chrono::milliseconds(600)) {
        EXPECT_EQ(pressure.Ask("getDriverVersion"), "Success DriverVersion=none");
        ++answers;
    }
    EXPECT_GT(answers, 10);
    EXPECT_EQ(client.Receive(), kUninstalled);
}

// A folder of the application that something is mounted on.
class RemovalOfWhatIsBusy : public Removal {
  protected:
    RemovalOfWhatIsBusy() : Removal({"--tmpfs", "/Applications/Notes.app/busy"}) {
        sandbox.GiveToUser(kApp);
    }
};

TEST_F(RemovalOfWhatIsBusy, TriesEverySecondUntilItIsFree) {
    if (!Sandbox::CanSwitchUsers()) {
        GTEST_SKIP() << "only root can unmount";
    }
    client.Send(std::string(kUninstall) + "|");
    service.WaitForOutput(
        "Deleting file: /Applications/Notes.app/busy\n"
        "      Unable to remove object, error fBsyErr\n",
        2);
    Program unmount;
    unmount.path = "/usr/bin/umount";
    unmount.arguments = {"umount", "/Applications/Notes.app/busy"};
    unmount.identity = Identity::kRoot;
    const Descriptor errors(dup(2));
    sandbox.Start(unmount, errors.Get(), errors.Get(), errors.Get());
    EXPECT_EQ(client.Receive(), kUninstalled);
    EXPECT_FALSE(Exists(kApp));
    EXPECT_GE(CountOf(service.Output(), "error fBsyErr"), 2U);
}

// Nobody can be asked for an administrator's password.
class RemovalWithNobodyToAsk : public ApplicationsTest {
  protected:
    RemovalWithNobodyToAsk() : ApplicationsTest({}, With("PATH", "/stand-ins")) {}
};

TEST_F(RemovalWithNobodyToAsk, ThatNeedsAnAdministrator_Fails) {
    MakeApplication(sandbox, kApp, {"com.example.notes"});
    Protect(sandbox, std::string(kApp) + "/Contents");
    EXPECT_THAT(PrintedFor(kUninstall, kNotUninstalled),
                HasSubstr("AuthorizeScript: Failed to copy rights.\n"));
}

}  // namespace
