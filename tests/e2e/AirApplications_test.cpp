// Applications made for Adobe AIR: installed, asked for and started through the command port. The
// stand-in for the installer unpacks what it is given, if it may.
#include <gmock/gmock.h>

#include "support/Applications.h"
#include "support/Files.h"
#include "support/ProgramRun.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr char kUnpacks[] = "mkdir -p \"$4\" && tar -xf \"$5\" -C \"$4\"\n";
constexpr char kNotes[] = "/Applications/Tessel Dock/Apps/Notes.app";

const std::string& Opening() {
    static const std::string& text =
        *new std::string(std::string("Opening install manager at:\n") + kAirInstaller + "\n");
    return text;
}

std::string ArgumentsFor(const std::string& package) {
    return std::string("-silent -eulaAccepted -location \"") + kAppsFolder + "\" \"" + package +
           "\"";
}

class AirApplications : public ApplicationsTest {
  protected:
    AirApplications() {
        InstallTool(sandbox, kAirInstaller, kUnpacks);
        InstallTool(sandbox, kPkexec, kAgrees);
        sandbox.GiveToUser("/Applications");
        sandbox.MakeUsersFolder("/Applications/Tessel Dock");
    }

    // An installation package of the application com.example.notes, called NAME.
    std::string MakePackage(const std::string& name = "Notes.air") {
        MakeApplication(sandbox, "/Users/Shared/made/Notes.app", {"com.example.notes"});
        const std::string package = "/Users/Shared/" + name;
        const ProgramRun made = RunProgram(
            sandbox, {"/usr/bin/tar", "-cf", package, "-C", "/Users/Shared/made", "Notes.app"});
        EXPECT_EQ(made.status, 0) << made.errors;
        return package;
    }
    bool Exists(const std::string& path) const {
        return std::filesystem::exists(std::filesystem::symlink_status(sandbox.Outside(path)));
    }
    void MakeNotes() { MakeApplication(sandbox, kNotes, {"com.example.notes"}); }
};

TEST_F(AirApplications, Install_ThatTheInstallersOwnRightsAreEnoughFor_AsksForNoPassword) {
    const std::string package = MakePackage();
    EXPECT_EQ(PrintedFor("installAirApp Notes com.example.notes " + package,
                         "Success AirAppInstallStarted=Notes"),
              Opening() + "Installer arguments: " + ArgumentsFor(package) +
                  "\nProcessOpenManager::open : ''" + kAirInstaller + "' " + ArgumentsFor(package) +
                  "'\nError : zero bytes read from command ''" + kAirInstaller + "' " +
                  ArgumentsFor(package) +
                  "'\nInstaller started:\nisOsAppInstalled: Installed Notes\n"
                  "Application Notes is registered.\n");
    EXPECT_EQ(CallsOf(sandbox, kAirInstallerName), std::string("-silent|-eulaAccepted|-location|") +
                                                       kAppsFolder + "|" + package + "|\n");
    EXPECT_EQ(CallsOf(sandbox, "pkexec"), "");
}

TEST_F(AirApplications, Install_ThatNeedsAnAdministrator_RunsAScriptAndWaitsUntilItIsThere) {
    Protect(sandbox, "/Applications/Tessel Dock");
    const std::string package = MakePackage();
    const std::string printed = PrintedFor("installAirApp Notes com.example.notes " + package,
                                           "Success AirAppInstallStarted=Notes");
    const std::string script = std::string(kTemporaryFolder) + "TesselAppInstallNotes.sh";
    const std::string text =
        std::string("#!/bin/sh \n'") + kAirInstaller + "' " + ArgumentsFor(package) + "\n";
    EXPECT_THAT(printed,
                HasSubstr("Installer started:\nisOsAppInstalled: Not Installed Notes\n"
                          "Starting script to install Notes\n -GenerateInstallAirAppScriptFile: " +
                          ArgumentsFor(package) + "\nganerated file:\n" + text +
                          "\n\nGenerateScript: Starting script generation\nTarget path:" + script +
                          "\n\nScript exit code: 0\nScript exit result code: noErr\n"
                          "Info: folder is: " +
                          kNotes +
                          "\nfound item registration res: noErr\n"
                          "isOsAppInstalled: Installed Notes\n"))
        << printed;
    EXPECT_EQ(ReadFile(sandbox.Outside(script)), text);
    EXPECT_EQ(ModeOf(sandbox.Outside(script)), 0777U);
    EXPECT_EQ(CallsOf(sandbox, "pkexec"),
              "--disable-internal-agent|--keep-cwd|/bin/sh|" + script + "|\n");
    EXPECT_EQ(CountOf(CallsOf(sandbox, kAirInstallerName), "\n"), 2U);
}

// There is no folder "no" among the scripts.
TEST_F(AirApplications, Install_WhoseScriptCannotBeWritten_FailsAtOnceAndAsksNobody) {
    Protect(sandbox, "/Applications/Tessel Dock");
    EXPECT_THAT(PrintedFor("installAirApp no/Notes com.example.notes " + MakePackage(),
                           "Success AirAppInstallFailed=no/Notes"),
                HasSubstr("Call to Creating script file in support dir returned error 2\n"));
    EXPECT_EQ(CallsOf(sandbox, "pkexec"), "");
}

TEST_F(AirApplications, Upgrade_WhoseScriptCannotBeWritten_FailsAndAsksNobody) {
    MakeNotes();
    Protect(sandbox, std::string(kNotes) + "/Contents");
    EXPECT_THAT(PrintedFor("upgradeAirApp no/Notes com.example.notes " + MakePackage(),
                           "Success AirAppUpgradeFailed=no/Notes"),
                HasSubstr("Call to Creating script file in support dir returned error 2\n"));
    EXPECT_EQ(CallsOf(sandbox, "pkexec"), "");
    EXPECT_TRUE(Exists(std::string(kNotes) + "/Contents/Info.plist"));
}

TEST_F(AirApplications, Install_WithoutTheInstaller_Fails) {
    std::filesystem::remove(sandbox.Outside(kAirInstaller));
    EXPECT_EQ(PrintedFor("installAirApp Notes com.example.notes " + MakePackage(),
                         "Success AirAppInstallFailed=Notes"),
              Opening() + "InstallAirApplication - can not find air installer file - \n" +
                  kAirInstaller + "\n");
}

TEST_F(AirApplications, Install_OfAPackageThatIsNotThere_FailsAndRunsNothing) {
    EXPECT_EQ(
        PrintedFor("installAirApp Notes com.example.notes '/Users/Shared/no package'",
                   "Success AirAppInstallFailed=Notes"),
        Opening() +
            "InstallAirApplication - can not find air installation package - \n/Users/Shared/no "
            "package\n");
    EXPECT_EQ(CallsOf(sandbox, kAirInstallerName), "");
}

TEST_F(AirApplications, Install_WithoutAPackage_IsNotAnInstallation) {
    EXPECT_THAT(Ask("installAirApp Notes com.example.notes ''"),
                StartsWith("SyntaxError Wrong number of arguments, expected: 3 - "));
    EXPECT_EQ(PrintedFor("installAirApp Notes com.example.notes ' '",
                         "Success AirAppInstallFailed=Notes"),
              "InstallAirApp: Argument null or empty.\n");
}

TEST_F(AirApplications, Install_WithAnEmptySecondWord_ReachesTheInstallation) {
    EXPECT_THAT(PrintedFor("installAirApp Notes '' /x", "Success AirAppInstallFailed=Notes"),
                HasSubstr("can not find air installation package - \n/x\n"));
}

TEST_F(AirApplications, Install_OfAPackageWithBlanksAndApostrophes_HandsThemOn) {
    const std::string package = MakePackage("it's Anna's & Otto's Notes.air");
    EXPECT_EQ(Ask("installAirApp \"My Notes\" com.example.notes \"" + package + "\""),
              "Success AirAppInstallStarted=My Notes");
    EXPECT_THAT(CallsOf(sandbox, kAirInstallerName), HasSubstr("|" + package + "|\n"));
}

TEST_F(AirApplications, WhileAnInstallerRuns_ThePressurePortAnswersAndTheInstallationGoesOn) {
    MakePackage();
    InstallTool(sandbox, kAirInstaller,
                std::string("until [ -e /tmp/go ]; do /bin/sleep 0.05; done\n") + kUnpacks);
    Client pressure = service.ConnectToPressure();
    client.Send("installAirApp Notes com.example.notes /Users/Shared/Notes.air|platform|");
    WaitUntil("the installer runs", [&] { return !CallsOf(sandbox, kAirInstallerName).empty(); });
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(pressure.Ask("getDriverVersion"), "Success DriverVersion=none");
    }
    client.ExpectSilence();
    WriteFile(sandbox.Outside("/tmp/go"), "");
    EXPECT_EQ(client.Receive(), "Success AirAppInstallStarted=Notes");
    EXPECT_EQ(client.Receive(), "Success MACOSX");
}

TEST_F(AirApplications, WhenTheClientGoesWhileAnInstallerRuns_TheServiceIsThereForTheNext) {
    MakePackage();
    InstallTool(sandbox, kAirInstaller, "until [ -e /tmp/go ]; do /bin/sleep 0.05; done\n");
    client.Send("upgradeAirApp Notes com.example.notes /Users/Shared/Notes.air|");
    WaitUntil("the installer runs", [&] { return !CallsOf(sandbox, kAirInstallerName).empty(); });
    client.Reset();
    InstallTool(sandbox, kAirInstaller, kUnpacks);
    MakeNotes();
    WriteFile(sandbox.Outside("/tmp/go"), "");
    service.WaitForOutput("Application Notes is registered.\n");
    client = service.Authorized();
    EXPECT_EQ(Ask("isAirAppInstalled Notes com.example.notes"), "Success AirAppIsInstalled=Notes");
}

TEST_F(AirApplications, Upgrade_OfAFolderThatMayBeDeleted_RemovesAndInstallsWithoutAPassword) {
    MakeNotes();
    sandbox.MakeUsersFile(std::string(kNotes) + "/Contents/old", "");
    const std::string printed = PrintedFor("upgradeAirApp Notes com.example.notes " + MakePackage(),
                                           "Success AirAppUpgradeStarted=Notes");
    EXPECT_THAT(printed, AllOf(StartsWith("isOsAppInstalled: Installed Notes\n  Deleting folder: "),
                               HasSubstr("UninstallAirApp: Uninstallation started for Notes\n"
                                         "found item unregistration res: fnfErr\n" +
                                         Opening()),
                               HasSubstr("Application Notes is registered.\n")));
    EXPECT_FALSE(Exists(std::string(kNotes) + "/Contents/old"));
    EXPECT_TRUE(Exists(std::string(kNotes) + "/Contents/Info.plist"));
    EXPECT_EQ(CallsOf(sandbox, "pkexec"), "");
}

TEST_F(AirApplications, Upgrade_OfAFolderThatMayNotBeDeleted_AsksOnceAndDoesBothInOneScript) {
    MakeNotes();
    Protect(sandbox, std::string(kNotes) + "/Contents");
    Protect(sandbox, kAppsFolder);
    const std::string package = MakePackage();
    const std::string printed = PrintedFor("upgradeAirApp Notes com.example.notes " + package,
                                           "Success AirAppUpgradeStarted=Notes");
    const std::string script = std::string(kTemporaryFolder) + "TesselAppUpdateNotes.sh";
    const std::string text = std::string("#!/bin/sh \nrm -rf '") + kNotes + "'\n'" + kAirInstaller +
                             "' " + ArgumentsFor(package) + "\n";
    EXPECT_THAT(printed,
                HasSubstr("Starting script to update Notes\n -GenerateUpgradeAirAppScriptFile: " +
                          ArgumentsFor(package) + "\nganerated file:\n" + text +
                          "\n\nGenerateScript: Starting script generation\nTarget path:" + script +
                          "\n\nScript exit code: 0\n"));
    EXPECT_EQ(ReadFile(sandbox.Outside(script)), text);
    EXPECT_EQ(ModeOf(sandbox.Outside(script)), 0777U);
    EXPECT_EQ(CountOf(CallsOf(sandbox, "pkexec"), "\n"), 1U);
    EXPECT_TRUE(Exists(std::string(kNotes) + "/Contents/Info.plist"));
}

// What was installed before counts, not what is there now: a client of such an upgrade waits for
// nothing.
TEST_F(AirApplications, Upgrade_ThatFailed_OfWhatWasThereBefore_SucceedsAtOnceDeliberately) {
    MakeNotes();
    Protect(sandbox, std::string(kNotes) + "/Contents");
    InstallTool(sandbox, kPkexec, "exit 126\n");
    const auto before = std::chrono::steady_clock::now();
    EXPECT_THAT(PrintedFor("upgradeAirApp Notes com.example.notes " + MakePackage(),
                           "Success AirAppUpgradeStarted=Notes"),
                HasSubstr("AuthorizeScript: Authorization failed, or script encountered errors: "
                          "-60006\n"));
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(5));
}

TEST_F(AirApplications, Upgrade_OfWhatIsNotThere_IsAnInstallation) {
    EXPECT_THAT(PrintedFor("upgradeAirApp Notes com.example.notes " + MakePackage(),
                           "Success AirAppUpgradeStarted=Notes"),
                StartsWith("isOsAppInstalled: Not Installed Notes\n"
                           "UninstallAirApp: Uninstallation started for Notes\n"
                           "found item unregistration res: fnfErr\n" +
                           Opening()));
    EXPECT_TRUE(Exists(kNotes));
}

TEST_F(AirApplications, Upgrade_WithoutAPackage_HasRemovedTheOldOneAndFails) {
    MakeNotes();
    EXPECT_THAT(PrintedFor("upgradeAirApp Notes com.example.notes /none",
                           "Success AirAppUpgradeFailed=Notes"),
                HasSubstr("can not find air installation package - \n/none\n"));
    EXPECT_FALSE(Exists(kNotes));
}

TEST_F(AirApplications, IsInstalled_AsksByTheSecondWord) {
    EXPECT_EQ(PrintedFor("isAirAppInstalled Notes com.example.notes",
                         "Success AirAppIsNotInstalled=Notes"),
              "isOsAppInstalled: Not Installed Notes\n");
    MakeNotes();
    EXPECT_EQ(PrintedFor("isAirAppInstalled 'Any name' com.example.notes",
                         "Success AirAppIsInstalled=Any name"),
              "isOsAppInstalled: Installed Any name\n");
}

TEST_F(AirApplications, IsInstalled_WithAnEmptyWord_IsNot) {
    MakeNotes();
    EXPECT_EQ(PrintedFor("isAirAppInstalled '' com.example.notes", "Success AirAppIsNotInstalled="),
              "isOsAppInstalled: Argument null or empty.\n");
    EXPECT_EQ(
        PrintedFor("isAirAppInstalled ' ' com.example.notes", "Success AirAppIsNotInstalled= "),
        "isOsAppInstalled: Argument null or empty.\n");
    EXPECT_THAT(Ask("isAirAppInstalled Notes ''"),
                StartsWith("SyntaxError Wrong number of arguments, expected: 2 - "));
    EXPECT_THAT(Ask("isAirAppInstalled Notes"),
                StartsWith("SyntaxError Wrong number of arguments, expected: 2 - "));
}

TEST_F(AirApplications, Start_OpensTheApplication) {
    MakeNotes();
    EXPECT_EQ(PrintedFor("startAirApplication Notes com.example.notes and more",
                         "Success AirAppIsStarted=Notes"),
              "isOsAppInstalled: Installed Notes\n");
    WaitUntil("it runs", [&] { return StartsOf(sandbox, "Notes").size() == 1; });
    // It is there already: it only comes to the front.
    EXPECT_EQ(Ask("startAirApplication Notes com.example.notes"), "Success AirAppIsStarted=Notes");
    EXPECT_TRUE(IsRunning(sandbox, StartsOf(sandbox, "Notes").at(0)));
    EXPECT_EQ(StartsOf(sandbox, "Notes").size(), 1U);
}

TEST_F(AirApplications, Start_WithoutAnyArgument_RepliesWithTheKeyAlone) {
    EXPECT_EQ(PrintedFor("startAirApplication", "Success AirAppIsNotStarted="),
              "ProcessManager::StartAirApp - wrong number of argumets. Expected atleast 3, got "
              "1\n");
}

TEST_F(AirApplications, Start_WithTwoWords_TellsThatTheyAreTwo) {
    EXPECT_EQ(PrintedFor("startAirApplication Notes", "Success AirAppIsNotStarted=Notes"),
              "ProcessManager::StartAirApp - wrong number of argumets. Expected atleast 3, got "
              "2\n");
}

TEST_F(AirApplications, Start_OfWhatIsNotInstalled_Fails) {
    EXPECT_EQ(PrintedFor("startAirApplication Notes com.example.notes",
                         "Success AirAppIsNotStarted=Notes"),
              "isOsAppInstalled: Not Installed Notes\n"
              "ProcessManager::StartAirApp - application Notes is not installed\n");
}

TEST_F(AirApplications, Start_OfABundleWithoutItsProgram_Fails) {
    MakeNotes();
    std::filesystem::remove_all(sandbox.Outside(std::string(kNotes) + "/Contents/MacOS"));
    EXPECT_EQ(Ask("startAirApplication Notes com.example.notes"),
              "Success AirAppIsNotStarted=Notes");
}

TEST_F(AirApplications, NamesOfAllKinds_AreFoundAndStarted) {
    for (const char* const name : {"Zürich 日本", "it's a \"name\"", "$(touch x) & more", "-rf"}) {
        const std::string folder = kAppsFolder + std::string(name) + ".app";
        // A name of its own for the file with the process number, which shells would read.
        MakeApplication(sandbox, folder, {"com.example.named", "echo x >>/tmp/started\nexit\n"});
        EXPECT_EQ(Ask("startAirApplication 'Größe' com.example.named"),
                  "Success AirAppIsStarted=Gr??e")
            << name;
        WaitUntil("it has run",
                  [&] { return !ReadFileIfAny(sandbox.Outside("/tmp/started")).empty(); });
        std::filesystem::remove(sandbox.Outside("/tmp/started"));
        std::filesystem::remove_all(sandbox.Outside(folder));
    }
}

TEST_F(AirApplications, BundlesWithABrokenOrMissingInfoPlist_AreNotFoundAndHideNobody) {
    MakeNotes();
    const std::string apps = kAppsFolder;
    MakeApplication(sandbox, apps + "A.app", {"com.example.notes", kStays, "Program", "<plist><"});
    MakeApplication(sandbox, apps + "B.app", {"com.example.notes", kStays, "Program", "\xFF\xFE"});
    MakeApplication(sandbox, apps + "C.app",
                    {"com.example.notes", kStays, "Program", "bplist00garbage"});
    MakeApplication(
        sandbox, apps + "D.app",
        {"x", kStays, "Program",
         "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><true/></dict></plist>"});
    MakeApplication(sandbox, apps + "E.app", {"com.example.e"});
    std::filesystem::remove(sandbox.Outside(apps + "E.app/Contents/Info.plist"));
    std::filesystem::create_directory(sandbox.Outside(apps + "E.app/Contents/Info.plist"));
    EXPECT_EQ(Ask("isAirAppInstalled E com.example.e"), "Success AirAppIsNotInstalled=E");
    EXPECT_EQ(Ask("startAirApplication Notes com.example.notes"), "Success AirAppIsStarted=Notes");
    WaitUntil("it runs", [&] { return StartsOf(sandbox, "Notes").size() == 1; });
}

}  // namespace
