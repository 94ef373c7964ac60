#include "Support/ReplacedFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "FilesTesting.h"

namespace {

using filestest::InAChild;
using filestest::TemporaryFolder;
using filestest::WriteFile;
using frameworks::ReplacedFile;
using frameworks::ReplaceFile;

constexpr auto kFollowed = ReplacedFile::Link::kFollowed;
constexpr auto kReplaced = ReplacedFile::Link::kReplaced;
constexpr auto kSafe = ReplacedFile::Durability::kSurvivesCrashes;
constexpr auto kQuick = ReplacedFile::Durability::kNone;
// A user without any rights.
constexpr uid_t kNobody = 65534;

std::string Content(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

std::vector<std::string> Names(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
}

struct stat StatusOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status;
}

class ReplacedFileTest : public ::testing::Test {
  protected:
    TemporaryFolder folder;
    const std::string path = folder / "file";
    const std::vector<std::string> theFileAlone = {"file"};
};

TEST_F(ReplacedFileTest, ANewFile_IsMadeWithItsMode) {
    const mode_t mask = umask(S_IWGRP | S_IWOTH);
    EXPECT_TRUE(ReplaceFile(path, "new", kFollowed, kSafe, 0666));
    EXPECT_TRUE(ReplaceFile(folder / "private", "new", kFollowed, kQuick, 0600));
    umask(mask);
    EXPECT_EQ(Content(path), "new");
    EXPECT_EQ(StatusOf(path).st_mode & 07777, 0644u);
    EXPECT_EQ(StatusOf(folder / "private").st_mode & 07777, 0600u);
    EXPECT_EQ(Names(folder.Path()), (std::vector<std::string>{"file", "private"}));
}

TEST_F(ReplacedFileTest, UntilItIsCommitted_TheOldContentsAreThere) {
    WriteFile(path, "old");
    ReplacedFile file;
    ASSERT_TRUE(file.Open(path, kFollowed, 0666));
    ASSERT_TRUE(file.Write("the "));
    ASSERT_TRUE(file.Write("new"));
    EXPECT_EQ(Content(path), "old");
    ASSERT_TRUE(file.Commit(kSafe));
    EXPECT_EQ(Content(path), "the new");
    EXPECT_EQ(Names(folder.Path()), theFileAlone);
}

TEST_F(ReplacedFileTest, WithoutACommit_NothingIsLeftBeside) {
    WriteFile(path, "old");
    {
        ReplacedFile file;
        ASSERT_TRUE(file.Open(path, kFollowed, 0666));
        ASSERT_TRUE(file.Write("new"));
        EXPECT_EQ(Names(folder.Path()).size(), 2u);
    }
    EXPECT_EQ(Content(path), "old");
    EXPECT_EQ(Names(folder.Path()), theFileAlone);
}

TEST_F(ReplacedFileTest, AReaderOfTheOldFile_KeepsIt) {
    WriteFile(path, "old");
    std::ifstream reader(path);
    ASSERT_TRUE(ReplaceFile(path, "new", kFollowed, kQuick, 0666));
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(reader), {}), "old");
}

TEST_F(ReplacedFileTest, TheModeOfTheOldFile_Stays) {
    WriteFile(path, "old");
    for (const mode_t mode : {0600u, 0640u, 0666u, 0755u}) {
        ASSERT_EQ(chmod(path.c_str(), mode), 0);
        ASSERT_TRUE(ReplaceFile(path, "new", kFollowed, kQuick, 0666));
        EXPECT_EQ(StatusOf(path).st_mode & 07777, mode);
    }
}

TEST_F(ReplacedFileTest, OwnerAndGroupOfTheOldFile_Stay) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can give a file away";
    WriteFile(path, "old");
    ASSERT_EQ(chown(path.c_str(), 1234, 4321), 0);
    ASSERT_TRUE(ReplaceFile(path, "new", kFollowed, kQuick, 0666));
    EXPECT_EQ(StatusOf(path).st_uid, 1234u);
    EXPECT_EQ(StatusOf(path).st_gid, 4321u);
    EXPECT_EQ(Content(path), "new");
}

TEST_F(ReplacedFileTest, WhereTheOwnerCannotStay_TheFileStaysAsItWas) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can be somebody else";
    WriteFile(path, "old");
    ASSERT_EQ(chmod(path.c_str(), 0666), 0);
    ASSERT_EQ(chmod(folder.Path().c_str(), 0777), 0);
    InAChild([&] {
        ASSERT_EQ(setresuid(kNobody, kNobody, kNobody), 0);
        EXPECT_FALSE(ReplaceFile(path, "new", kFollowed, kQuick, 0666));
        EXPECT_EQ(errno, EPERM);
    });
    EXPECT_EQ(Content(path), "old");
    EXPECT_EQ(Names(folder.Path()), theFileAlone);
}

TEST_F(ReplacedFileTest, AFileThatMayNotBeWritten_IsNotReplaced) {
    WriteFile(path, "old");
    ASSERT_EQ(chmod(path.c_str(), 0444), 0);
    ASSERT_EQ(chmod(folder.Path().c_str(), 0777), 0);
    InAChild([&] {
        if (geteuid() == 0) {
            ASSERT_EQ(setresuid(kNobody, kNobody, kNobody), 0);
        }
        EXPECT_FALSE(ReplaceFile(path, "new", kFollowed, kQuick, 0666));
        EXPECT_EQ(errno, EACCES);
    });
    EXPECT_EQ(Content(path), "old");
    EXPECT_EQ(Names(folder.Path()), theFileAlone);
}

TEST_F(ReplacedFileTest, InAFolderThatTakesNoNewFile_NothingIsWritten) {
    WriteFile(path, "old");
    ASSERT_EQ(chmod(path.c_str(), 0666), 0);
    ASSERT_EQ(chmod(folder.Path().c_str(), 0555), 0);
    InAChild([&] {
        if (geteuid() == 0) {
            ASSERT_EQ(setresuid(kNobody, kNobody, kNobody), 0);
        }
        ReplacedFile file;
        EXPECT_FALSE(file.Open(path, kFollowed, 0666));
        EXPECT_EQ(errno, EACCES);
        EXPECT_FALSE(file.IsOpen());
    });
    EXPECT_EQ(Content(path), "old");
    ASSERT_EQ(chmod(folder.Path().c_str(), 0700), 0);
}

TEST_F(ReplacedFileTest, WhenTheMediumIsFull_TheFileStaysAndNothingIsLeftBeside) {
    WriteFile(path, "old");
    InAChild([&] {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{100, 100};
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
        EXPECT_FALSE(ReplaceFile(path, std::string(1000, 'x'), kFollowed, kSafe, 0666));
        EXPECT_EQ(errno, EFBIG);
        ReplacedFile file;
        ASSERT_TRUE(file.Open(path, kFollowed, 0666));
        EXPECT_FALSE(file.Write(std::string(1000, 'x')));
        EXPECT_FALSE(file.IsOpen());
        EXPECT_FALSE(file.Commit(kSafe));
    });
    EXPECT_EQ(Content(path), "old");
    EXPECT_EQ(Names(folder.Path()), theFileAlone);
}

TEST_F(ReplacedFileTest, ALinkThatIsFollowed_StaysALink) {
    WriteFile(path, "old");
    ASSERT_EQ(symlink("file", (folder / "near").c_str()), 0);
    ASSERT_EQ(symlink((folder / "near").c_str(), (folder / "far").c_str()), 0);
    ASSERT_TRUE(ReplaceFile(folder / "far", "new", kFollowed, kQuick, 0666));
    EXPECT_EQ(Content(path), "new");
    EXPECT_TRUE(S_ISLNK(StatusOf(folder / "near").st_mode));
    EXPECT_TRUE(S_ISLNK(StatusOf(folder / "far").st_mode));
    EXPECT_EQ(Names(folder.Path()), (std::vector<std::string>{"far", "file", "near"}));
}

TEST_F(ReplacedFileTest, ALinkIntoAnotherFolder_IsWrittenThere) {
    const TemporaryFolder other;
    WriteFile(other / "file", "old");
    ASSERT_EQ(symlink((other / "file").c_str(), path.c_str()), 0);
    ASSERT_TRUE(ReplaceFile(path, "new", kFollowed, kQuick, 0666));
    EXPECT_EQ(Content(other / "file"), "new");
    EXPECT_TRUE(S_ISLNK(StatusOf(path).st_mode));
}

TEST_F(ReplacedFileTest, ALinkToNothing_GetsWhatItNames) {
    ASSERT_EQ(mkdir((folder / "sub").c_str(), 0700), 0);
    ASSERT_EQ(symlink("sub/new", path.c_str()), 0);
    ASSERT_TRUE(ReplaceFile(path, "new", kFollowed, kQuick, 0666));
    EXPECT_EQ(Content(folder / "sub/new"), "new");
    EXPECT_TRUE(S_ISLNK(StatusOf(path).st_mode));
}

TEST_F(ReplacedFileTest, ALinkThatIsReplaced_BecomesAFile) {
    WriteFile(folder / "precious", "old");
    ASSERT_EQ(symlink("precious", path.c_str()), 0);
    ASSERT_TRUE(ReplaceFile(path, "new", kReplaced, kQuick, 0666));
    EXPECT_EQ(Content(folder / "precious"), "old");
    EXPECT_TRUE(S_ISREG(StatusOf(path).st_mode));
    EXPECT_EQ(Content(path), "new");
}

TEST_F(ReplacedFileTest, LinksInACircle_AreRefused) {
    ASSERT_EQ(symlink("b", (folder / "a").c_str()), 0);
    ASSERT_EQ(symlink("a", (folder / "b").c_str()), 0);
    EXPECT_FALSE(ReplaceFile(folder / "a", "new", kFollowed, kQuick, 0666));
    EXPECT_EQ(errno, ELOOP);
}

// Whoever could write into a folder for everybody could otherwise choose which file is overwritten.
TEST_F(ReplacedFileTest, AStrangersLinkInAFolderForEverybody_IsNotFollowed) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can be somebody else";
    WriteFile(folder / "precious", "old");
    ASSERT_EQ(mkdir((folder / "shared").c_str(), 0700), 0);
    ASSERT_EQ(chmod((folder / "shared").c_str(), 01777), 0);
    const std::string link = folder / "shared/link";
    const std::string dangling = folder / "shared/dangling";
    ASSERT_EQ(symlink("../precious", link.c_str()), 0);
    ASSERT_EQ(symlink("../made", dangling.c_str()), 0);
    ASSERT_EQ(lchown(link.c_str(), kNobody, kNobody), 0);
    ASSERT_EQ(lchown(dangling.c_str(), kNobody, kNobody), 0);
    EXPECT_FALSE(ReplaceFile(link, "new", kFollowed, kQuick, 0666));
    EXPECT_EQ(errno, EACCES);
    EXPECT_FALSE(ReplaceFile(dangling, "new", kFollowed, kQuick, 0666));
    EXPECT_EQ(Content(folder / "precious"), "old");
    EXPECT_FALSE(std::filesystem::exists(folder / "made"));
}

TEST_F(ReplacedFileTest, WhatIsNoFile_IsNotReplaced) {
    ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
    EXPECT_FALSE(ReplaceFile(path, "new", kFollowed, kQuick, 0666));
    EXPECT_EQ(errno, EISDIR);
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    EXPECT_FALSE(ReplaceFile(folder / "pipe", "new", kFollowed, kQuick, 0666));
    EXPECT_EQ(errno, EINVAL);
    EXPECT_FALSE(ReplaceFile("/dev/null", "new", kReplaced, kQuick, 0666));
    EXPECT_EQ(Names(folder.Path()), (std::vector<std::string>{"file", "pipe"}));
}

TEST_F(ReplacedFileTest, WithoutAFolder_NothingIsWritten) {
    EXPECT_FALSE(ReplaceFile(folder / "none/file", "new", kFollowed, kQuick, 0666));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(ReplaceFile("", "new", kFollowed, kQuick, 0666));
}

TEST_F(ReplacedFileTest, ANameOfTheGreatestLength_HasRoomBeside) {
    const std::string longest = folder / std::string(255, 'n');
    EXPECT_TRUE(ReplaceFile(longest, "new", kFollowed, kQuick, 0666));
    EXPECT_EQ(Content(longest), "new");
    EXPECT_FALSE(ReplaceFile(longest + "n", "new", kFollowed, kQuick, 0666));
    EXPECT_EQ(Names(folder.Path()).size(), 1u);
}

TEST_F(ReplacedFileTest, ItsDescriptor_IsNotInherited) {
    ReplacedFile file;
    ASSERT_TRUE(file.Open(path, kFollowed, 0666));
    int open = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (std::filesystem::read_symlink(entry, gone).string().find(folder.Path()) == 0) {
            ++open;
            EXPECT_EQ(fcntl(std::stoi(entry.path().filename()), F_GETFD), FD_CLOEXEC);
        }
    }
    EXPECT_EQ(open, 1);
}

TEST_F(ReplacedFileTest, NothingCanBeWrittenBeforeItIsOpenedOrAfterItIsCommitted) {
    ReplacedFile file;
    EXPECT_FALSE(file.Write("x"));
    EXPECT_FALSE(file.Commit(kQuick));
    ASSERT_TRUE(file.Open(path, kFollowed, 0666));
    EXPECT_FALSE(file.Open(path, kFollowed, 0666));
    ASSERT_TRUE(file.Commit(kQuick));
    EXPECT_FALSE(file.Write("x"));
    EXPECT_FALSE(file.Commit(kQuick));
    EXPECT_EQ(Content(path), "");
}

TEST_F(ReplacedFileTest, KeepReplaced_LeavesTheOldFileUnderAnotherName) {
    WriteFile(path, "old");
    ReplacedFile file;
    EXPECT_FALSE(file.KeepReplaced(".old"));
    ASSERT_TRUE(file.Open(path, kFollowed, 0666));
    EXPECT_TRUE(file.Write("new"));
    EXPECT_TRUE(file.KeepReplaced(".old"));
    EXPECT_TRUE(file.KeepReplaced(".old"));
    ASSERT_TRUE(file.Commit(kQuick));
    EXPECT_EQ(Content(path), "new");
    EXPECT_EQ(Content(path + ".old"), "old");
    EXPECT_EQ(Names(folder.Path()).size(), 2u);
}

TEST_F(ReplacedFileTest, KeepReplaced_WithoutCommit_LeavesNothing) {
    WriteFile(path, "old");
    {
        ReplacedFile file;
        ASSERT_TRUE(file.Open(path, kFollowed, 0666));
        EXPECT_TRUE(file.KeepReplaced(".old"));
    }
    EXPECT_EQ(Content(path), "old");
    EXPECT_EQ(Names(folder.Path()).size(), 1u);
}

TEST_F(ReplacedFileTest, KeepReplaced_OfNoFileOrAnEmptyOne_KeepsNothing) {
    for (const bool isThere : {false, true}) {
        if (isThere) WriteFile(path, "");
        ReplacedFile file;
        ASSERT_TRUE(file.Open(path, kFollowed, 0666));
        EXPECT_TRUE(file.KeepReplaced(".old"));
    }
    EXPECT_EQ(Names(folder.Path()).size(), 1u);
}

}  // namespace
