// Real packages, plain and zipped, installed through the command port by the tools that stand in
// for the Mac's. Who installs without rights may write to the root of the sandbox here.
#include <gmock/gmock.h>

#include "support/Applications.h"
#include "support/Files.h"
#include "support/ProgramRun.h"

namespace {

using testing::HasSubstr;

constexpr char kInstalled[] = "Success NativeAppInstallStarted=draw";
constexpr char kNotInstalled[] = "Success NativeAppInstallFailed=draw";

class NativePackages : public ApplicationsTest {
  protected:
    NativePackages()
        : ApplicationsTest({"--chmod", "0777", "/", "--perms", "1777", "--size", "1048576",
                            "--tmpfs", "/small"}) {
        InstallRealTools(sandbox);
        InstallTool(sandbox, kPkexec);
        sandbox.GiveToUser("/Applications");
        MakeApplication(sandbox, "/Users/Shared/made/My Draw.app", {"com.example.draw"});
    }

    // As the sandbox's user, in a folder that is everybody's.
    void Make(const std::string& command) {
        const ProgramRun made =
            RunProgram(sandbox, {"/bin/sh", "-c", "cd /Users/Shared && { " + command + "\n}"});
        ASSERT_EQ(made.status, 0) << command << "\n" << made.errors;
    }
    void MakePackageFolder(const std::string& name) {
        sandbox.MakeUsersFile(
            "/Users/Shared/" + name + "/Contents/Info.plist",
            "<?xml version=\"1.0\"?>\n<plist version=\"1.0\"><dict>"
            "<key>IFPkgFlagDefaultLocation</key><string>/Applications</string></dict></plist>\n");
        Make("bsdtar -czf '" + name + "/Contents/Archive.pax.gz' --format odc -C made .");
    }
    // Whoever runs something with an administrator's rights is root, as far as tools ask.
    void LetUserAgree() {
        InstallTool(sandbox, kPkexec, std::string("PATH=/Library/roots-own:$PATH\n") + kAgrees);
        sandbox.MakeUsersFile("/Library/roots-own/id", "#!/bin/sh\necho 0\n");
        std::filesystem::permissions(sandbox.Outside("/Library/roots-own/id"),
                                     std::filesystem::perms(0755));
    }
    std::string List(const std::string& folder) {
        return RunProgram(sandbox, {"/usr/bin/ls", folder}).output;
    }
    bool Exists(const std::string& path) const {
        return std::filesystem::exists(std::filesystem::symlink_status(sandbox.Outside(path)));
    }
};

TEST_F(NativePackages, AZippedFolder_IsInstalledAndItsApplicationFound) {
    MakePackageFolder("It is Größe.pkg");
    // Shells are told names in ASCII only.
    Make(
        "mv 'It is Größe.pkg' 'It is.pkg' && bsdtar -cf 'It is.pkg.zip' --format zip 'It is.pkg' "
        "&& rm -r 'It is.pkg'");
    EXPECT_EQ(Ask("installNativeApp draw x '/Users/Shared/It is.pkg.zip'"), kInstalled);
    EXPECT_EQ(Ask("isNativeAppInstalled draw com.example.draw"),
              "Success NativeAppIsInstalled=draw");
    EXPECT_TRUE(Exists("/Applications/My Draw.app/Contents/MacOS/Program"));
    EXPECT_FALSE(Exists("/Users/Shared/It is.pkg"));
    EXPECT_TRUE(Exists("/Users/Shared/It is.pkg.zip"));
    EXPECT_EQ(CallsOf(sandbox, "pkexec"), "");
    EXPECT_EQ(Ask("startNativeApplication draw com.example.draw"),
              "Success NativeAppIsStarted=draw");
}

TEST_F(NativePackages, AFolder_IsInstalledAndStays) {
    MakePackageFolder("Draw.pkg");
    EXPECT_EQ(Ask("upgradeNativeApp draw x /Users/Shared/Draw.pkg"),
              "Success NativeAppUpgradeStarted=draw");
    EXPECT_TRUE(Exists("/Applications/My Draw.app/Contents/Info.plist"));
    EXPECT_TRUE(Exists("/Users/Shared/Draw.pkg/Contents/Info.plist"));
}

TEST_F(NativePackages, AFile_IsInstalled) {
    sandbox.MakeUsersFile("/Users/Shared/flat/PackageInfo",
                          "<pkg-info format-version=\"2\" install-location=\"/Applications\" "
                          "auth=\"root\"></pkg-info>\n");
    Make(
        "bsdtar -czf flat/Payload --format odc -C made . && "
        "bsdtar -cf Draw.pkg --format xar -C flat PackageInfo Payload");
    EXPECT_EQ(Ask("installNativeApp draw x /Users/Shared/Draw.pkg"), kInstalled);
    EXPECT_EQ(Ask("isNativeAppInstalled draw com.example.draw"),
              "Success NativeAppIsInstalled=draw");
}

TEST_F(NativePackages, WhatIsNoPackage_FailsAlsoForAnAdministrator) {
    LetUserAgree();
    sandbox.MakeUsersFile("/Users/Shared/Draw.pkg", "This is no package.");
    sandbox.MakeUsersFile("/Users/Shared/Draw.zip", "This is no archive.");
    for (const char* const package :
         {"/Users/Shared/Draw.pkg", "/Users/Shared/Draw.zip", "/Users/Shared/none.pkg"}) {
        EXPECT_THAT(PrintedFor(std::string("installNativeApp draw x ") + package, kNotInstalled),
                    HasSubstr("Script exit code: 0\n"))
            << package;
    }
    EXPECT_EQ(CountOf(CallsOf(sandbox, "pkexec"), "\n"), 3U);
    EXPECT_TRUE(std::filesystem::is_empty(sandbox.Outside("/Applications")));
}

// This tool says what it has done, so the key is the one for it.
TEST_F(NativePackages, ASuccessWithAnAdministratorsRights_IsAnsweredAsOne) {
    LetUserAgree();
    MakePackageFolder("Draw.pkg");
    Protect(sandbox, "/Applications");
    EXPECT_THAT(PrintedFor("installNativeApp draw x /Users/Shared/Draw.pkg", kInstalled),
                HasSubstr("installer: Installing at base path /\n"
                          "installer: The install was successful.\n\nScript exit code: 57\n"));
    EXPECT_EQ(CountOf(CallsOf(sandbox, "pkexec"), "\n"), 1U);
    EXPECT_EQ(Ask("isNativeAppInstalled draw com.example.draw"),
              "Success NativeAppIsInstalled=draw");
}

TEST_F(NativePackages, AScriptThatFailsWithAnAdministratorsRights_IsAnsweredAsAFailure) {
    LetUserAgree();
    MakePackageFolder("Draw.pkg");
    Make(
        "mkdir Draw.pkg/Contents/Resources && cd Draw.pkg/Contents/Resources && "
        "printf '#!/bin/sh\\nexit 1\\n' >postflight && chmod +x postflight");
    EXPECT_THAT(PrintedFor("installNativeApp draw x /Users/Shared/Draw.pkg", kNotInstalled),
                HasSubstr("Script exit code: 0\n"));
    EXPECT_EQ(CountOf(CallsOf(sandbox, "pkexec"), "\n"), 1U);
}

TEST_F(NativePackages, WhenTheDialogIsDismissed_IsAnsweredAsASuccessDeliberately) {
    InstallTool(sandbox, kPkexec, "exit 126\n");
    MakePackageFolder("Draw.pkg");
    Protect(sandbox, "/Applications");
    EXPECT_EQ(Ask("installNativeApp draw x /Users/Shared/Draw.pkg"), kInstalled);
    EXPECT_EQ(Ask("isNativeAppInstalled draw com.example.draw"),
              "Success NativeAppIsNotInstalled=draw");
}

// The tool runs as root, but where the service does.
TEST_F(NativePackages, ARelativePackage_IsFoundWithAnAdministratorsRightsToo) {
    LetUserAgree();
    MakePackageFolder("Draw.pkg");
    Protect(sandbox, "/Applications");
    EXPECT_EQ(Ask("installNativeApp draw x Users/Shared/Draw.pkg"), kInstalled);
    EXPECT_EQ(Ask("isNativeAppInstalled draw com.example.draw"),
              "Success NativeAppIsInstalled=draw");
}

TEST_F(NativePackages, AnArchiveOfALinkToTheFolderItLiesIn_RemovesNothingThere) {
    Make(
        "mkdir dl && cd dl && : >keep && ln -s . A && bsdtar -cf A.zip --format zip A && "
        "rm A");
    EXPECT_EQ(Ask("installNativeApp draw x /Users/Shared/dl/A.zip"), kNotInstalled);
    EXPECT_EQ(List("/Users/Shared/dl"), "A\nA.zip\nkeep\n");
}

TEST_F(NativePackages, AnArchiveOfALinkToAFolderBesideIt_RemovesNothingThere) {
    Make(
        "mkdir -p dl/keep && : >dl/keep/file && cd dl && ln -s keep C && "
        "bsdtar -cf C.zip --format zip C && rm C");
    EXPECT_EQ(Ask("installNativeApp draw x /Users/Shared/dl/C.zip"), kNotInstalled);
    EXPECT_EQ(List("/Users/Shared/dl"), "C\nC.zip\nkeep\n");
    EXPECT_EQ(List("/Users/Shared/dl/keep"), "file\n");
}

TEST_F(NativePackages, ALinkThatStandsBesideAnArchive_IsNotFollowedWhenTheRestIsRemoved) {
    Make(
        "mkdir dl precious && : >precious/file && ln -s ../precious dl/Draw && "
        "bsdtar -cf dl/Draw.zip --format zip -C precious file");
    EXPECT_EQ(Ask("installNativeApp draw x /Users/Shared/dl/Draw.zip"), kNotInstalled);
    EXPECT_EQ(List("/Users/Shared/dl"), "Draw\nDraw.zip\nfile\n");
    EXPECT_EQ(List("/Users/Shared/precious"), "file\n");
}

TEST_F(NativePackages, AnArchiveOfMoreThanTheDiskHolds_WritesNothing) {
    LetUserAgree();
    Make(
        "head -c 20000000 /dev/zero >made/large && bsdtar -cf /small/Bomb.zip --format zip "
        "-C made large");
    EXPECT_EQ(Ask("installNativeApp draw x /small/Bomb.zip"), kNotInstalled);
    EXPECT_EQ(RunProgram(sandbox, {"/usr/bin/ls", "/small"}).output, "Bomb.zip\n");
}

TEST_F(NativePackages, AnArchiveThatLeadsOut_WritesNothing) {
    LetUserAgree();
    Make(
        "mkdir deep && bsdtar -cf deep/Draw.zip --format zip -P -s ',^My,../escaped,' "
        "-C made 'My Draw.app'");
    EXPECT_EQ(Ask("installNativeApp draw x /Users/Shared/deep/Draw.zip"), kNotInstalled);
    EXPECT_EQ(RunProgram(sandbox, {"/usr/bin/ls", "/Users/Shared", "/Users/Shared/deep"}).output,
              "/Users/Shared:\ndeep\nmade\n\n/Users/Shared/deep:\nDraw.zip\n");
}

}  // namespace
