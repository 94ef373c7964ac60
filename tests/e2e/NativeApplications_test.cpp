// Native applications through the command port: installed from packages, asked for, started and
// stopped. ditto and installer are stand-ins that write down how they are called. With the real
// tools of this system, packages are installed by NativePackages_test.
#include <gmock/gmock.h>

#include "support/Applications.h"
#include "support/Files.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr char kInstaller[] = "/usr/sbin/installer";
constexpr char kInstalled[] = "Success NativeAppInstallStarted=draw";
constexpr char kNotInstalled[] = "Success NativeAppInstallFailed=draw";
constexpr char kNeedsRoot[] = "[ -n \"$ELEVATED\" ] || echo 'Must be run as root'\n";

class NativeApplications : public ApplicationsTest {
  protected:
    NativeApplications() {
        InstallTool(sandbox, kInstaller);
        InstallTool(sandbox, "/stand-ins/ditto");
        InstallTool(sandbox, kPkexec, kAgrees);
    }

    bool Exists(const std::string& path) const {
        return std::filesystem::exists(std::filesystem::symlink_status(sandbox.Outside(path)));
    }
    pid_t StartDraw(const std::string& program) {
        MakeApplication(sandbox, "/Applications/Draw.app", {"com.example.draw", program});
        EXPECT_EQ(Ask("startNativeApplication draw com.example.draw"),
                  "Success NativeAppIsStarted=draw");
        WaitUntil("it runs", [&] { return StartsOf(sandbox, "Draw").size() == 1; });
        return StartsOf(sandbox, "Draw").at(0);
    }
};

TEST_F(NativeApplications, Install_OfAPackage_RunsTheInstallerAloneAndDeletesNothing) {
    sandbox.MakeUsersFile("/Users/Shared/A.pkg/Contents/Info.plist", "");
    EXPECT_EQ(PrintedFor("installNativeApp draw not-read /Users/Shared/A.pkg", kInstalled),
              "ProcessOpenManager::open : '/usr/sbin/installer -pkg '/Users/Shared/A.pkg' -target "
              "LocalSystem'\nError : zero bytes read from command '/usr/sbin/installer -pkg "
              "'/Users/Shared/A.pkg' -target LocalSystem 2>&1'\n");
    EXPECT_EQ(CallsOf(sandbox, "installer"), "-pkg|/Users/Shared/A.pkg|-target|LocalSystem|\n");
    EXPECT_EQ(CallsOf(sandbox, "ditto"), "");
    EXPECT_EQ(CallsOf(sandbox, "pkexec"), "");
    EXPECT_TRUE(Exists("/Users/Shared/A.pkg/Contents/Info.plist"));
}

TEST_F(NativeApplications, Install_OfAZip_InWhateverCase_UnpacksInstallsAndRemovesTheFolder) {
    InstallTool(sandbox, "/stand-ins/ditto", "mkdir -p /Users/Shared/A/Contents && echo failure\n");
    EXPECT_THAT(
        PrintedFor("installNativeApp draw x /Users/Shared/A.ZIP", kInstalled),
        StartsWith("ProcessOpenManager::open : 'ditto -xk '/Users/Shared/A.ZIP' '/Users/Shared/''\n"
                   "received: \n"
                   "ProcessOpenManager::open : '/usr/sbin/installer -pkg '/Users/Shared/A' -target "
                   "LocalSystem'\n"));
    EXPECT_EQ(CallsOf(sandbox, "ditto"), "-xk|/Users/Shared/A.ZIP|/Users/Shared/|\n");
    EXPECT_EQ(CallsOf(sandbox, "installer"), "-pkg|/Users/Shared/A|-target|LocalSystem|\n");
    EXPECT_FALSE(Exists("/Users/Shared/A"));
}

TEST_F(NativeApplications, Install_OfAZippedFlatPackage_LeavesTheFileInPlace) {
    InstallTool(sandbox, "/stand-ins/ditto", "echo x >/Users/Shared/A.pkg\n");
    EXPECT_EQ(Ask("installNativeApp draw x /Users/Shared/A.pkg.zip"), kInstalled);
    EXPECT_EQ(CallsOf(sandbox, "installer"), "-pkg|/Users/Shared/A.pkg|-target|LocalSystem|\n");
    EXPECT_TRUE(Exists("/Users/Shared/A.pkg"));
}

TEST_F(NativeApplications, Install_OfAZipNamedWithoutAFolder_UnpacksIntoTheCurrentOneDeliberately) {
    EXPECT_EQ(Ask("installNativeApp draw x A.zip"), kInstalled);
    EXPECT_EQ(CallsOf(sandbox, "ditto"), "-xk|A.zip|.|\n");
    EXPECT_EQ(CallsOf(sandbox, "installer"), "-pkg|A|-target|LocalSystem|\n");
}

// What is left of the path is the folder that the archive lies in, or the one above.
TEST_F(NativeApplications, Install_OfAZipWithoutAName_DoesNotRemoveTheFolderItLiesIn) {
    for (const char* const name : {".zip", "..zip", "...zip"}) {
        const std::string archive = std::string("/Users/anna/things/") + name;
        sandbox.MakeUsersFile(archive, "");
        EXPECT_EQ(Ask("installNativeApp draw x " + archive), kInstalled);
        EXPECT_TRUE(Exists(archive)) << name;
    }
    EXPECT_EQ(Ask("installNativeApp draw x .zip"), kInstalled);
}

// Clients know the outcome of the second run so: 0, which is success, counts as failed.
TEST_F(NativeApplications, AfterTheElevatedRetry_SuccessIsAnsweredWithFailureDeliberately) {
    for (const char* const said : {"Must be run as root", "the installation failed for a reason"}) {
        InstallTool(sandbox, kInstaller,
                    std::string("[ -n \"$ELEVATED\" ] || echo '") + said + "'\n");
        EXPECT_THAT(PrintedFor("installNativeApp draw x /Users/Shared/A.pkg", kNotInstalled),
                    HasSubstr("Script exit code: 0\nScript exit result code: noErr\n"))
            << said;
    }
    const std::string once =
        "--disable-internal-agent|--keep-cwd|/usr/sbin/installer|-pkg|/Users/Shared/A.pkg|-target|"
        "LocalSystem|\n";
    EXPECT_EQ(CallsOf(sandbox, "pkexec"), once + once);
    InstallTool(sandbox, kInstaller, kNeedsRoot);
    EXPECT_EQ(Ask("upgradeNativeApp draw x /Users/Shared/A.pkg"),
              "Success NativeAppUpgradeFailed=draw");
}

TEST_F(NativeApplications, AfterTheElevatedRetry_FailureIsAnsweredWithSuccessDeliberately) {
    InstallTool(sandbox, kInstaller, "echo 'Must be run as root'\n");
    // The first letter of what is printed less "0".
    EXPECT_THAT(PrintedFor("installNativeApp draw x /Users/Shared/A.pkg", kInstalled),
                HasSubstr("\nMust be run as root\n\nScript exit code: 29\n"));
    InstallTool(sandbox, kPkexec, "exit 126\n");
    EXPECT_THAT(PrintedFor("installNativeApp draw x /Users/Shared/A.pkg", kInstalled),
                HasSubstr("AuthorizeScript: Authorization failed, or script encountered errors: "
                          "-60006\n"));
    InstallTool(sandbox, kPkexec, "exit 127\n");
    EXPECT_THAT(PrintedFor("installNativeApp draw x /Users/Shared/A.pkg", kInstalled),
                HasSubstr("errors: -60005\n"));
}

TEST_F(NativeApplications, Install_ReadsTheErrorOutputAndUpgradeDoesNotDeliberately) {
    InstallTool(sandbox, kInstaller, "echo 'Must be run as root' >&2\n");
    EXPECT_EQ(Ask("upgradeNativeApp draw x /Users/Shared/A.pkg"),
              "Success NativeAppUpgradeStarted=draw");
    EXPECT_EQ(CallsOf(sandbox, "pkexec"), "");
    Ask("installNativeApp draw x /Users/Shared/A.pkg");
    EXPECT_THAT(CallsOf(sandbox, "pkexec"), HasSubstr("/usr/sbin/installer"));
}

// There is one text for what both tools print.
TEST_F(NativeApplications, WhatDittoSays_CountsInTheSearchForFailedDeliberately) {
    InstallTool(sandbox, "/stand-ins/ditto", "echo 'ditto: A.zip: failed: no such file' >&2\n");
    EXPECT_EQ(Ask("installNativeApp draw x /Users/Shared/A.zip"), kNotInstalled);
    EXPECT_EQ(CountOf(CallsOf(sandbox, "installer"), "\n"), 2U);
    EXPECT_EQ(CountOf(CallsOf(sandbox, "pkexec"), "\n"), 1U);
}

TEST_F(NativeApplications, Install_WithBlanksQuotesAndOtherLetters_HandsOverWhatAShellMakesOfIt) {
    EXPECT_EQ(Ask("installNativeApp 'draw it' x '/Users/Shared/My \"Package\" $(id).pkg'"),
              "Success NativeAppInstallStarted=draw it");
    // What is not ASCII does not reach shells.
    Ask("installNativeApp draw x /Users/Shared/Größe.pkg");
    EXPECT_EQ(CallsOf(sandbox, "installer"),
              "-pkg|/Users/Shared/My \"Package\" $(id).pkg|-target|LocalSystem|\n"
              "-pkg|/Users/Shared/Gr??e.pkg|-target|LocalSystem|\n");
}

TEST_F(NativeApplications,
       Install_IsAnsweredWhenItIsDoneDeliberately_WhileThePressurePortIsServed) {
    InstallTool(sandbox, kInstaller,
                "until [ -e /tmp/go ]; do /bin/sleep 0.05; done; echo failed\n");
    Client pressure = service.ConnectToPressure();
    client.Send("installNativeApp draw x /Users/Shared/A.pkg|");
    WaitUntil("the installer runs", [&] { return !CallsOf(sandbox, "installer").empty(); });
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(pressure.Ask("getDriverVersion"), "Success DriverVersion=none");
    }
    client.ExpectSilence();
    WriteFile(sandbox.Outside("/tmp/go"), "");
    EXPECT_EQ(client.Receive(), kInstalled);
}

TEST_F(NativeApplications, WithoutTheInstaller_OnlyThatNothingWasPrintedIsSaid) {
    std::filesystem::remove(sandbox.Outside(kInstaller));
    EXPECT_THAT(PrintedFor("upgradeNativeApp draw x /Users/Shared/A.pkg",
                           "Success NativeAppUpgradeStarted=draw"),
                HasSubstr("Error : zero bytes read from command '/usr/sbin/installer -pkg "));
}

TEST_F(NativeApplications, WrongNumbersOfWords_AreSyntaxErrors) {
    for (const char* const command : {"isNativeAppRunning draw", "uninstallNativeApp draw",
                                      "isNativeAppInstalled draw", "startNativeApplication draw",
                                      "stopNativeApplication draw", "isNativeAppRunning a b c"}) {
        EXPECT_THAT(Ask(command),
                    StartsWith("SyntaxError Wrong number of arguments, expected: 2 - "))
            << command;
    }
    for (const char* const command : {"installNativeApp draw x", "upgradeNativeApp a b c d"}) {
        EXPECT_THAT(Ask(command),
                    StartsWith("SyntaxError Wrong number of arguments, expected: 3 - "))
            << command;
    }
}

TEST_F(NativeApplications, ANameAlone_IsNoCommand) {
    for (const char* const command : {"installNativeApp", "isNativeAppRunning", "stopNativeApp"}) {
        Printed();
        EXPECT_THAT(Ask(command), StartsWith("SyntaxError Unknown command - "));
        EXPECT_THAT(Printed(), HasSubstr("No valid command found.\nUnknown command\n"));
    }
}

TEST_F(NativeApplications, Start_LaunchesAndIsRunningFindsIt) {
    EXPECT_EQ(Ask("isNativeAppRunning draw com.example.draw"),
              "Success NativeAppIsNotRunning=draw");
    EXPECT_EQ(Ask("isNativeAppInstalled draw com.example.draw"),
              "Success NativeAppIsNotInstalled=draw");
    StartDraw(kStays);
    EXPECT_EQ(Ask("isNativeAppInstalled draw com.example.draw"),
              "Success NativeAppIsInstalled=draw");
    EXPECT_EQ(Ask("isNativeAppRunning draw com.example.draw"), "Success NativeAppIsRunning=draw");
    EXPECT_EQ(Ask("isNativeAppRunning draw com.example"), "Success NativeAppIsNotRunning=draw");
}

TEST_F(NativeApplications, Start_OfWhatIsNotInstalled_SaysSoInTheWordsOfTheOtherCommand) {
    EXPECT_EQ(PrintedFor("startNativeApplication draw com.example.draw",
                         "Success NativeAppIsNotStarted=draw"),
              "isOsAppInstalled: Not Installed draw\n"
              "ProcessManager::StartAirApp - application draw is not installed\n");
}

TEST_F(NativeApplications, Stop_OfAnApplicationThatQuits_QuitsIt) {
    const pid_t program = StartDraw(kStays);
    EXPECT_EQ(PrintedFor("stopNativeApplication draw com.example.draw",
                         "Success NativeAppIsStopped=draw"),
              "");
    EXPECT_FALSE(IsRunning(sandbox, program));
    EXPECT_EQ(Ask("isNativeAppRunning draw com.example.draw"),
              "Success NativeAppIsNotRunning=draw");
}

TEST_F(NativeApplications, Stop_OfAnApplicationThatIgnoresIt_KillsIt) {
    const pid_t program = StartDraw(kIgnoresQuit);
    EXPECT_EQ(Ask("stopNativeApplication draw com.example.draw"),
              "Success NativeAppIsStopped=draw");
    WaitUntil("it has gone", [&] { return !IsRunning(sandbox, program); });
}

TEST_F(NativeApplications, Stop_OfWhatIsNotRunning_Succeeds) {
    EXPECT_EQ(Ask("stopNativeApplication draw com.example.draw"),
              "Success NativeAppIsStopped=draw");
}

TEST_F(NativeApplications, AnApplicationThatDiesAtOnce_IsStartedAndNotRunning) {
    const pid_t program = StartDraw("exit 1\n");
    WaitUntil("it has gone", [&] { return !IsRunning(sandbox, program); });
    EXPECT_EQ(Ask("isNativeAppRunning draw com.example.draw"),
              "Success NativeAppIsNotRunning=draw");
}

TEST_F(NativeApplications, AnApplicationInTheBackgroundOnly_DoesNotCountAsRunning) {
    MakeApplication(sandbox, "/Applications/Draw.app",
                    {"com.example.draw", kStays, "Program",
                     "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key>"
                     "<string>com.example.draw</string><key>CFBundleExecutable</key>"
                     "<string>Program</string><key>LSBackgroundOnly</key><true/></dict></plist>"});
    EXPECT_EQ(Ask("startNativeApplication draw com.example.draw"),
              "Success NativeAppIsStarted=draw");
    WaitUntil("it runs", [&] { return StartsOf(sandbox, "Draw").size() == 1; });
    EXPECT_EQ(Ask("isNativeAppRunning draw com.example.draw"),
              "Success NativeAppIsNotRunning=draw");
}

// Nobody can be asked for an administrator's password.
class NativeApplicationsWithNobodyToAsk : public ApplicationsTest {
  protected:
    NativeApplicationsWithNobodyToAsk() : ApplicationsTest({}, With("PATH", "/stand-ins")) {}
};

TEST_F(NativeApplicationsWithNobodyToAsk, Install_ThatNeedsAnAdministrator_SaysSo) {
    InstallTool(sandbox, kInstaller, kNeedsRoot);
    EXPECT_THAT(PrintedFor("installNativeApp draw x /Users/Shared/A.pkg", kInstalled),
                HasSubstr("AuthorizeScript: Failed to copy rights.\n"));
    EXPECT_EQ(CountOf(CallsOf(sandbox, "installer"), "\n"), 1U);
}

}  // namespace
