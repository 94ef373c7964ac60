#include "apps/Scripts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>

#include "apps/ProcessOpenManager.h"
#include "core/Helpers.h"
#include "unit/support/ForkedTest.h"
#include "unit/support/Kernel.h"
#include "unit/support/Waiting.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// In a home of its own, with nothing printed so far.
void Quietly(const std::function<void()>& body) {
    InChild([&body] {
        Helpers::logprint("opens the log");
        Printed();
        body();
    });
}

struct stat StatusOf(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(0, lstat(path.c_str(), &status)) << path;
    return status;
}

TEST(ScriptTemplates, AreTheseToTheByte) {
    EXPECT_STREQ(
        "#!/bin/sh \nif [ -f '###/TesselCoreUpdate.zip' ] \nthen \nbunzip2 -f "
        "'###/TesselCoreUpdate.zip' \nmv '###/TesselCoreUpdate.zip.out' '###/TesselCore' \nchmod "
        "+x '###/TesselCore' \nmv -f '/Library/Application "
        "Support/Velto/TesselCore.app/Contents/MacOS/TesselCore' '/Library/Application "
        "Support/Velto/TesselCore.app/Contents/MacOS/TesselCore.bck' \nmv -f '###/TesselCore' "
        "'/Library/Application Support/Velto/TesselCore.app/Contents/MacOS/TesselCore' \nchgrp -R "
        "admin '/Library/Application Support/Velto/TesselCore.app' \nchmod -R 775 "
        "'/Library/Application Support/Velto/TesselCore.app' \nfi \n",
        Scripts::coreUpdateScript);
    EXPECT_STREQ(
        "#!/bin/sh \nrm -rf '/Library/Application Support/Velto/' \nrm -rf '~/Library/Application "
        "Support/TesselCore/' \n",
        Scripts::coreUninstallScript);
    EXPECT_STREQ("#!/bin/sh \nrm -rf '%s'\n", Scripts::rmDirectoryScript);
    EXPECT_STREQ("#!/bin/sh \n'%s' %s\n", Scripts::installAirAppScript);
    EXPECT_STREQ("#!/bin/sh \nrm -rf '%s'\n'%s' %s\n", Scripts::upgradeAirAppScript);
}

TEST(Scripts, RequiresElevation_OfWhatCanBeGivenToTheGroup_IsFalseAndHasGivenIt) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can give a file to any group";
    }
    InChild([] {
        const std::string file = Home() + "/file";
        WriteFile(file, "");
        EXPECT_FALSE(Scripts::RequiresElevation(file));
        EXPECT_EQ(80u, StatusOf(file).st_gid);
        EXPECT_EQ(geteuid(), StatusOf(file).st_uid);
    });
}

TEST(Scripts, RequiresElevation_OfWhatCannot_IsTrue) {
    InChild([] {
        const std::string file = Home() + "/file";
        WriteFile(file, "");
        EXPECT_TRUE(Scripts::RequiresElevation(Home() + "/nothing"));
        GiveUpRootsRights();
        EXPECT_TRUE(Scripts::RequiresElevation(file));
    });
}

TEST(Scripts, Generate_WritesTheTextForEverybodyToRun) {
    Quietly([] {
        umask(077);
        const std::string file = Home() + "/my script.sh";
        WriteFile(file, std::string(1000, 'x'));
        EXPECT_TRUE(Scripts::GenerateScriptFile(file, "echo\n"));
        EXPECT_EQ("echo\n", ReadFile(file));
        EXPECT_EQ(0777u, StatusOf(file).st_mode & 07777);
        EXPECT_THAT(Printed(), ElementsAre("GenerateScript: Starting script generation",
                                           "Target path:" + file));
    });
}

TEST(Scripts, Generate_TurnsEveryTildeIntoTheHome) {
    Quietly([] {
        const std::string file = Home() + "/script.sh";
        EXPECT_TRUE(Scripts::GenerateScriptFile(file, "rm '~/a' 'b~c'\n"));
        EXPECT_EQ("rm '" + Home() + "/a' 'b" + Home() + "c'\n", ReadFile(file));
    });
}

TEST(Scripts, Generate_OverAnOlderOneThatCannotBeWritten_ReplacesIt) {
    Quietly([] {
        const std::string file = Home() + "/script.sh";
        WriteFile(file, "old\n");
        std::filesystem::permissions(file, std::filesystem::perms(0444));
        GiveUpRootsRights();
        EXPECT_TRUE(Scripts::GenerateScriptFile(file, "new\n"));
        EXPECT_EQ("new\n", ReadFile(file));
    });
}

TEST(Scripts, Generate_OverALink_LeavesWhatItPointsTo) {
    Quietly([] {
        const std::string file = Home() + "/script.sh";
        WriteFile(Home() + "/other", "other\n");
        std::filesystem::create_symlink(Home() + "/other", file);
        EXPECT_TRUE(Scripts::GenerateScriptFile(file, "new\n"));
        EXPECT_EQ("new\n", ReadFile(file));
        EXPECT_EQ("other\n", ReadFile(Home() + "/other"));
    });
}

TEST(Scripts, Generate_OverAnOlderOneThatCannotBeReplaced_SaysSo) {
    Quietly([] {
        const std::string folder = Home() + "/folder";
        std::filesystem::create_directory(folder);
        WriteFile(folder + "/script.sh", "old\n");
        std::filesystem::permissions(folder + "/script.sh", std::filesystem::perms(0444));
        std::filesystem::permissions(folder, std::filesystem::perms(0555));
        GiveUpRootsRights();
        EXPECT_FALSE(Scripts::GenerateScriptFile(folder + "/script.sh", "new\n"));
        EXPECT_EQ("Call to Creating script file in support dir returned error 13",
                  Printed().back());
        std::filesystem::permissions(folder, std::filesystem::perms(0755));
    });
}

TEST(Scripts, Generate_WhereNoFileCanBeMade_SaysSo) {
    Quietly([] {
        const std::string file = Home() + "/nothing/script.sh";
        EXPECT_FALSE(Scripts::GenerateScriptFile(file, "echo\n"));
        EXPECT_THAT(Printed(),
                    ElementsAre("GenerateScript: Starting script generation", "Target path:" + file,
                                "Call to Creating script file in support dir returned error 2"));
    });
}

TEST(Scripts, Start_ReturnsBeforeTheScriptHasEnded) {
    Quietly([] {
        const std::string script = Home() + "/a script.sh";
        // Not marked as a program: the shell is told to read it.
        WriteFile(script, "cat; echo >'" + Home() + "/done'\n");
        EXPECT_TRUE(Scripts::StartScript(script));
        EXPECT_THAT(Printed(),
                    ElementsAre("GenerateScript: Starting script",
                                "ProcessOpenManager::open : '/bin/sh '" + script + "''"));
        EXPECT_FALSE(Exists(Home() + "/done"));
        // The next command waits for it.
        ProcessOpenManager::getInstance()->open("true", "r", nullptr, false);
        EXPECT_TRUE(Exists(Home() + "/done"));
    });
}

TEST(Scripts, WriteAndRun_WithoutElevation_StartsItFromTheTemporaryFolder) {
    Quietly([] {
        setenv("TMPDIR", Home().c_str(), 1);
        EXPECT_TRUE(Scripts::WriteAndRunScript("my.sh", "echo > ~/done\nexit 3\n", false));
        const std::string script = Helpers::getTempFolder() + "my.sh";
        EXPECT_THAT(
            Printed(),
            ElementsAre("Scripts: Writing script...", "GenerateScript: Starting script generation",
                        "Target path:" + script, "GenerateScript: Starting script",
                        "ProcessOpenManager::open : '/bin/sh '" + script + "''"));
        EXPECT_TRUE(WaitUntil([] { return Exists(Home() + "/done"); }));
        EXPECT_EQ("echo > " + Home() + "/done\nexit 3\n", ReadFile(script));
    });
}

TEST(Scripts, WriteAndRun_OfWhatCannotBeWritten_Aborts) {
    Quietly([] {
        setenv("TMPDIR", Home().c_str(), 1);
        EXPECT_FALSE(Scripts::WriteAndRunScript("no/my.sh", "echo\n", false));
        const std::vector<std::string> printed = Printed();
        EXPECT_EQ("Scripts: Unable to create script at support path, aborting", printed.back());
        EXPECT_EQ(5u, printed.size());
    });
}

TEST(Scripts, WriteAndRun_WithElevation_IsTrueWhenTheScriptPrintsNothing) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "root need not ask for an administrator's rights";
    }
    Quietly([] {
        setenv("TMPDIR", Home().c_str(), 1);
        EXPECT_TRUE(Scripts::WriteAndRunScript("my.sh", "exit 3\n", true));
        EXPECT_FALSE(Scripts::WriteAndRunScript("my.sh", "echo 1\n", true));
        EXPECT_TRUE(Scripts::WriteAndRunScript("my.sh", "echo 0\n", true));
    });
}

TEST(Scripts, OfARemoval_HoldsTheFolder) {
    Quietly([] {
        const std::string file = Home() + "/script.sh";
        EXPECT_TRUE(Scripts::GenerateRemoveDirectoryScriptFile(file, "/a b/%s%d/c"));
        EXPECT_EQ("#!/bin/sh \nrm -rf '/a b/%s%d/c'\n", ReadFile(file));
        EXPECT_EQ(" -GenerateRemoveDirectoryScriptFile: /a b/%s%d/c", Printed().at(0));
    });
}

TEST(Scripts, OfAnInstallation_HoldsInstallerAndArguments) {
    Quietly([] {
        const std::string file = Home() + "/script.sh";
        EXPECT_TRUE(Scripts::GenerateInstallAirAppScriptFile(file, "/in %s", "-a \"b %s\""));
        EXPECT_EQ("#!/bin/sh \n'/in %s' -a \"b %s\"\n", ReadFile(file));
        EXPECT_THAT(Printed(), ElementsAre(" -GenerateInstallAirAppScriptFile: -a \"b %s\"",
                                           "ganerated file:", "#!/bin/sh ", "'/in %s' -a \"b %s\"",
                                           "", "", "GenerateScript: Starting script generation",
                                           "Target path:" + file));
    });
}

TEST(Scripts, OfAnUpgrade_HoldsFolderInstallerAndArgumentsInThisOrder) {
    Quietly([] {
        const std::string file = Home() + "/script.sh";
        EXPECT_TRUE(Scripts::GenerateUpgradeAirAppScriptFile(file, "/old", "/installer", "-a b"));
        EXPECT_EQ("#!/bin/sh \nrm -rf '/old'\n'/installer' -a b\n", ReadFile(file));
        EXPECT_THAT(
            Printed(),
            ElementsAre(" -GenerateUpgradeAirAppScriptFile: -a b", "ganerated file:", "#!/bin/sh ",
                        "rm -rf '/old'", "'/installer' -a b", "", "",
                        "GenerateScript: Starting script generation", "Target path:" + file));
    });
}

TEST(Scripts, OfAPathWithAnApostrophe_AreBrokenDeliberately) {
    Quietly([] {
        const std::string file = Home() + "/script.sh";
        EXPECT_TRUE(Scripts::GenerateRemoveDirectoryScriptFile(file, "/it's"));
        EXPECT_EQ("#!/bin/sh \nrm -rf '/it's'\n", ReadFile(file));
    });
}

}  // namespace
