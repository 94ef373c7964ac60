// In a process of its own, where permissions hold for root, too.
#include "core/WholeFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <vector>

#include "unit/support/ForkedTest.h"
#include "unit/support/Kernel.h"

namespace {

constexpr uid_t kSomebodyElse = 12345;

int Replace(const std::string& path, const std::string& text) {
    WholeFile file;
    const int error = file.Open(path);
    return error != 0 ? error : file.Commit(text);
}

ino_t NumberOf(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(0, lstat(path.c_str(), &status)) << path;
    return status.st_ino;
}

unsigned ModeOf(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(0, lstat(path.c_str(), &status)) << path;
    return status.st_mode & 07777;
}

long FilesIn(const std::string& folder) {
    return std::distance(std::filesystem::directory_iterator(folder), {});
}

TEST(WholeFile, ThatIsNew_HasTheModeOfEveryNewFile) {
    InChild([] {
        umask(0027);
        const std::string path = Home() + "/file";
        EXPECT_EQ(0, Replace(path, "text"));
        EXPECT_EQ("text", ReadFile(path));
        EXPECT_EQ(0640u, ModeOf(path));
        EXPECT_EQ(1, FilesIn(Home()));
    });
}

TEST(WholeFile, ThatIsReplaced_KeepsItsModeAndIsAnotherFile) {
    InChild([] {
        const std::string path = Home() + "/file";
        WriteFile(path, "old");
        ASSERT_EQ(0, chmod(path.c_str(), 0604));
        // Held open, so that its number is not used again.
        std::FILE* const reader = std::fopen(path.c_str(), "r");
        const ino_t before = NumberOf(path);
        EXPECT_EQ(0, Replace(path, "new"));
        EXPECT_EQ("new", ReadFile(path));
        EXPECT_EQ(0604u, ModeOf(path));
        EXPECT_NE(before, NumberOf(path));
        EXPECT_EQ('o', std::fgetc(reader));
        std::fclose(reader);
        EXPECT_EQ(1, FilesIn(Home()));
    });
}

TEST(WholeFile, OfSomebodyElse_IsReplacedByANewOneOfOurOwn) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can make a file of somebody else's";
    }
    InChild([] {
        const std::string path = Home() + "/file";
        WriteFile(path, "old");
        ASSERT_EQ(0, chown(path.c_str(), kSomebodyElse, kSomebodyElse));
        ASSERT_EQ(0, chmod(path.c_str(), 0606));
        umask(022);
        EXPECT_EQ(0, Replace(path, "new"));
        EXPECT_EQ("new", ReadFile(path));
        EXPECT_EQ(0644u, ModeOf(path));
        struct stat status = {};
        EXPECT_EQ(0, lstat(path.c_str(), &status));
        EXPECT_EQ(0u, status.st_uid);
    });
}

TEST(WholeFile, WithoutACommit_IsAsItWas) {
    InChild([] {
        const std::string path = Home() + "/file";
        WriteFile(path, "old");
        {
            WholeFile file;
            EXPECT_EQ(0, file.Open(path));
        }
        EXPECT_EQ("old", ReadFile(path));
        EXPECT_EQ(1, FilesIn(Home()));
    });
}

TEST(WholeFile, ThatCannotBeRenamed_IsAsItWas) {
    InChild([] {
        const std::string path = Home() + "/file";
        WriteFile(path, "old");
        LetFail(SYS_rename, EIO);
        EXPECT_EQ(EIO, Replace(path, "new"));
        EXPECT_EQ("old", ReadFile(path));
        EXPECT_EQ(1, FilesIn(Home()));
    });
}

TEST(WholeFile, InPlaceOfALink_IsNotWrittenWhereItLeads) {
    InChild([] {
        const std::string path = Home() + "/file";
        WriteFile(Home() + "/other", "another's");
        ASSERT_EQ(0, symlink("other", path.c_str()));
        EXPECT_EQ(0, Replace(path, "new"));
        EXPECT_EQ("another's", ReadFile(Home() + "/other"));
        EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(path)));
        EXPECT_EQ("new", ReadFile(path));
    });
}

TEST(WholeFile, InPlaceOfAnotherFilesSecondName_LeavesThatFileAlone) {
    InChild([] {
        const std::string path = Home() + "/file";
        WriteFile(path, "another's");
        ASSERT_EQ(0, link(path.c_str(), (Home() + "/other").c_str()));
        EXPECT_EQ(0, Replace(path, "new"));
        EXPECT_EQ("another's", ReadFile(Home() + "/other"));
        EXPECT_EQ("new", ReadFile(path));
    });
}

TEST(WholeFile, InPlaceOfAFIFO_WaitsForNobody) {
    InChild([] {
        const std::string path = Home() + "/file";
        ASSERT_EQ(0, mkfifo(path.c_str(), 0666));
        EXPECT_EQ(0, Replace(path, "new"));
        EXPECT_EQ("new", ReadFile(path));
    });
}

TEST(WholeFile, ForItsOwnerAlone_IsSoFromItsFirstMomentOn) {
    InChild([] {
        umask(0);
        const std::string path = Home() + "/file";
        const auto modes = [] {
            std::vector<unsigned> found;
            for (const auto& entry : std::filesystem::directory_iterator(Home())) {
                found.push_back(ModeOf(entry.path().string()));
            }
            return found;
        };
        for (const bool isThere : {false, true}) {
            if (isThere) {
                ASSERT_EQ(0, chmod(path.c_str(), 0666));
            }
            WholeFile file;
            EXPECT_EQ(0, file.Open(path, WholeFile::Readers::kOwnerAlone));
            EXPECT_THAT(modes(), testing::Contains(0600u));
            EXPECT_THAT(modes(), testing::SizeIs(isThere ? 2 : 1));
            EXPECT_EQ(0, file.Commit("text"));
            EXPECT_THAT(modes(), testing::ElementsAre(0600u));
        }
    });
}

TEST(WholeFile, ClosedToWriting_IsNotReplaced) {
    InChild([] {
        const std::string path = Home() + "/file";
        WriteFile(path, "old");
        ASSERT_EQ(0, chmod(path.c_str(), 0400));
        GiveUpRootsRights();
        EXPECT_EQ(EACCES, Replace(path, "new"));
        EXPECT_EQ("old", ReadFile(path));
    });
}

TEST(WholeFile, InAFolderThatTakesNoOther_IsWrittenInPlace) {
    InChild([] {
        const std::string folder = Home() + "/folder";
        ASSERT_EQ(0, mkdir(folder.c_str(), 0700));
        WriteFile(folder + "/file", "a longer old one");
        ASSERT_EQ(0, chmod(folder.c_str(), 0500));
        GiveUpRootsRights();
        EXPECT_EQ(0, Replace(folder + "/file", "new"));
        EXPECT_EQ("new", ReadFile(folder + "/file"));
        ASSERT_EQ(0, chmod(folder.c_str(), 0700));
    });
}

// Where no file can be put beside it, FILE is closed to others before it is written.
class InPlaceForItsOwnerAlone : public testing::Test {
  protected:
    void Write(const std::function<void()>& body, uid_t owner) const {
        InChild([&] {
            ASSERT_EQ(0, mkdir(Folder().c_str(), 0700));
            WriteFile(File(), "a longer old one");
            ASSERT_EQ(0, chown(File().c_str(), owner, static_cast<gid_t>(-1)));
            ASSERT_EQ(0, chmod(File().c_str(), 0666));
            ASSERT_EQ(0, chmod(Folder().c_str(), 0500));
            GiveUpRootsRights();
            body();
            ASSERT_EQ(0, chmod(Folder().c_str(), 0700));
        });
    }
    static std::string Folder() { return Home() + "/folder"; }
    static std::string File() { return Folder() + "/file"; }
};

TEST_F(InPlaceForItsOwnerAlone, IsClosedToOthersAndThenWritten) {
    Write(
        [] {
            WholeFile file;
            EXPECT_EQ(0, file.Open(File(), WholeFile::Readers::kOwnerAlone));
            EXPECT_EQ(0600u, ModeOf(File()));
            EXPECT_EQ("a longer old one", ReadFile(File()));
            EXPECT_EQ(0, file.Commit("new"));
            EXPECT_EQ("new", ReadFile(File()));
        },
        geteuid());
}

TEST_F(InPlaceForItsOwnerAlone, WhenItIsAnothers_IsLeftAsItWas) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can make a file of somebody else's";
    }
    Write(
        [] {
            WholeFile file;
            EXPECT_EQ(EPERM, file.Open(File(), WholeFile::Readers::kOwnerAlone));
            EXPECT_EQ("a longer old one", ReadFile(File()));
            EXPECT_EQ(EBADF, file.Commit("new"));
        },
        kSomebodyElse);
}

TEST(WholeFile, InAFolderThatIsNotThere_FailsWithTheSystemsNumber) {
    InChild([] {
        EXPECT_EQ(ENOENT, Replace(Home() + "/no/file", "new"));
        EXPECT_EQ(EISDIR, Replace(Home(), "new"));
        WriteFile(Home() + "/file", "old");
        EXPECT_EQ(ENOTDIR, Replace(Home() + "/file/file", "new"));
    });
}

TEST(WholeFile, AfterAFailure_TakesNothing) {
    InChild([] {
        WholeFile file;
        EXPECT_EQ(ENOENT, file.Open(Home() + "/no/file"));
        EXPECT_EQ(EBADF, file.Commit("text"));
    });
}

}  // namespace
