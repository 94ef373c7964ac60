#include "apps/ProcessManager.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "core/Helpers.h"
#include "unit/support/ForkedTest.h"
#include "unit/support/Kernel.h"

namespace {

std::wstring Wide(const std::string& utf8) {
    return Helpers::wstringFromUtf8(utf8).c_str();
}

unsigned ModeOf(const std::string& path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : ~0u;
}

TEST(CheckFileExists, TellsFilesFoldersAndLinksFromNothing) {
    InChild([] {
        const std::string file = Home() + "/file";
        WriteFile(file, "");
        ASSERT_EQ(0, symlink((Home() + "/nothing").c_str(), (Home() + "/link").c_str()));
        EXPECT_TRUE(ProcessManager::CheckFileExists(Wide(file)));
        EXPECT_TRUE(ProcessManager::CheckFileExists(Wide(Home())));
        EXPECT_TRUE(ProcessManager::CheckFileExists(Wide(Home() + "/")));
        // What the link points to is not asked for.
        EXPECT_TRUE(ProcessManager::CheckFileExists(Wide(Home() + "/link")));
        EXPECT_FALSE(ProcessManager::CheckFileExists(Wide(Home() + "/nothing")));
        EXPECT_FALSE(ProcessManager::CheckFileExists(Wide(Home() + "/nothing/file")));
    });
}

TEST(CheckFileExists, TakesThePathAsUtf8) {
    InChild([] {
        WriteFile(Home() + "/caf\xC3\xA9 \xE2\x82\xAC", "");
        EXPECT_TRUE(ProcessManager::CheckFileExists(Wide(Home()) + L"/caf\u00E9 \u20AC"));
        EXPECT_FALSE(ProcessManager::CheckFileExists(Wide(Home()) + L"/caf? ?"));
        WriteFile(Home() + "/caf?", "");
        EXPECT_FALSE(ProcessManager::CheckFileExists(Wide(Home()) + L"/caf\u00E8"));
    });
}

TEST(CheckFileExists, OfTheEmptyPath_IsFalse) {
    EXPECT_FALSE(ProcessManager::CheckFileExists(L""));
}

TEST(CheckFileExists, WhatCannotBeLookedAt_Exists) {
    InChild([] {
        WriteFile(Home() + "/file", "");
        const std::string closed = Home() + "/closed";
        ASSERT_EQ(0, mkdir(closed.c_str(), 0600));
        GiveUpRootsRights();
        EXPECT_TRUE(ProcessManager::CheckFileExists(Wide(closed + "/nothing")));
        // Below a file, and with a name that is too long.
        EXPECT_TRUE(ProcessManager::CheckFileExists(Wide(Home() + "/file/x")));
        EXPECT_TRUE(ProcessManager::CheckFileExists(Wide(Home()) + L"/" + std::wstring(300, L'x')));
    });
}

TEST(IsSubPath, IsAPlainTestOfTheBeginning) {
    EXPECT_TRUE(ProcessManager::IsSubPath(L"/a/b", L"/a/"));
    EXPECT_TRUE(ProcessManager::IsSubPath(L"/a/", L"/a/"));
    EXPECT_TRUE(ProcessManager::IsSubPath(L"/ab", L"/a"));
    EXPECT_FALSE(ProcessManager::IsSubPath(L"/a", L"/a/"));
    EXPECT_FALSE(ProcessManager::IsSubPath(L"/b/a/", L"/a/"));
    EXPECT_FALSE(ProcessManager::IsSubPath(L"/A/b", L"/a/"));
    EXPECT_FALSE(ProcessManager::IsSubPath(L"", L"/a/"));
}

TEST(IsSubPath, OfAPathWithTwoDots_IsFalse) {
    EXPECT_FALSE(ProcessManager::IsSubPath(L"/a/b/../c", L"/a/"));
    EXPECT_FALSE(ProcessManager::IsSubPath(L"/a/..", L"/a/"));
    EXPECT_FALSE(ProcessManager::IsSubPath(L"/a/b..c", L"/a/"));
    EXPECT_TRUE(ProcessManager::IsSubPath(L"/a/./b.c", L"/a/"));
}

TEST(IsSubPath, NormalisesNothing) {
    EXPECT_FALSE(ProcessManager::IsSubPath(L"/x/./y", L"/x/y"));
    EXPECT_FALSE(ProcessManager::IsSubPath(L"//a/b", L"/a/"));
}

TEST(FixPermissions, OpensAFolderToEverybody) {
    InChild([] {
        const std::string folder = Home() + "/f\xC3\xA9";
        ASSERT_EQ(0, mkdir(folder.c_str(), 0700));
        EXPECT_TRUE(ProcessManager::FixPermissions(Wide(folder), true));
        EXPECT_EQ(0777u, ModeOf(folder));
    });
}

TEST(FixPermissions, OpensAFileToEverybodyWithoutMakingItAProgram) {
    InChild([] {
        const std::string file = Home() + "/file";
        WriteFile(file, "");
        ASSERT_EQ(0, chmod(file.c_str(), 0700));
        EXPECT_TRUE(ProcessManager::FixPermissions(Wide(file), false));
        EXPECT_EQ(0666u, ModeOf(file));
        EXPECT_TRUE(ProcessManager::FixPermissions(Wide(file), true));
        EXPECT_EQ(0777u, ModeOf(file));
    });
}

TEST(FixPermissions, ThatTheSystemRefuses_IsFalse) {
    InChild([] {
        EXPECT_FALSE(ProcessManager::FixPermissions(Wide(Home() + "/nothing"), false));
        EXPECT_FALSE(ProcessManager::FixPermissions(L"", true));
        // A user's rights do not reach somebody else's file.
        if (geteuid() == 0) {
            const std::string file = Home() + "/file";
            WriteFile(file, "");
            ASSERT_EQ(0, chown(file.c_str(), 1, 1));
            GiveUpRootsRights();
            EXPECT_FALSE(ProcessManager::FixPermissions(Wide(file), false));
        }
        EXPECT_FALSE(ProcessManager::FixPermissions(L"/proc/self/cmdline", true));
    });
}

TEST(FixPermissions, ThroughALinkOfTheUsersOwn_OpensWhatItLeadsTo) {
    InChild([] {
        const std::string file = Home() + "/file";
        WriteFile(file, "");
        ASSERT_EQ(0, symlink("file", (Home() + "/link").c_str()));
        EXPECT_TRUE(ProcessManager::FixPermissions(Wide(Home() + "/link"), false));
        EXPECT_EQ(0666u, ModeOf(file));
    });
}

TEST(FixPermissions, ThroughALinkOfAnotherUser_IsRefused) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can give a link away";
    }
    InChild([] {
        const std::string folder = Home() + "/private";
        const std::string file = folder + "/file";
        ASSERT_EQ(0, mkdir(folder.c_str(), 0700));
        WriteFile(file, "");
        ASSERT_EQ(0, chmod(file.c_str(), 0600));
        for (const auto& [link, target] :
             {std::pair("/file", file), std::pair("/folder", folder)}) {
            ASSERT_EQ(0, symlink(target.c_str(), (Home() + link).c_str()));
            ASSERT_EQ(0, lchown((Home() + link).c_str(), 1, 1));
        }
        EXPECT_FALSE(ProcessManager::FixPermissions(Wide(Home() + "/file"), false));
        EXPECT_FALSE(ProcessManager::FixPermissions(Wide(Home() + "/folder"), true));
        EXPECT_FALSE(ProcessManager::FixPermissions(Wide(Home() + "/folder/"), true));
        EXPECT_FALSE(ProcessManager::FixPermissions(Wide(Home() + "/folder/file"), false));
        EXPECT_EQ(0600u, ModeOf(file));
        EXPECT_EQ(0700u, ModeOf(folder));
    });
}

TEST(FixPermissions, OfAFileWithASecondName_IsRefusedOnlyWhereAllMayWrite) {
    InChild([] {
        const std::string file = Home() + "/file";
        const std::string shared = Home() + "/shared";
        WriteFile(file, "");
        ASSERT_EQ(0, chmod(file.c_str(), 0600));
        ASSERT_EQ(0, mkdir(shared.c_str(), 0700));
        ASSERT_EQ(0, chmod(shared.c_str(), 01777));
        ASSERT_EQ(0, link(file.c_str(), (shared + "/name").c_str()));
        EXPECT_FALSE(ProcessManager::FixPermissions(Wide(shared + "/name"), false));
        EXPECT_EQ(0600u, ModeOf(file));
        EXPECT_TRUE(ProcessManager::FixPermissions(Wide(file), false));
        EXPECT_EQ(0666u, ModeOf(file));
    });
}

}  // namespace
