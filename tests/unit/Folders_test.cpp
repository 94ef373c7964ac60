#include <CarbonCore/Folders.h>
#include <CarbonCore/MacErrors.h>
#include <limits.h>
#include <pwd.h>
#include <sys/mount.h>

#include <set>

#include "CarbonCore/TemporaryFolder.h"
#include "FilesTesting.h"
#include "ProcessTesting.h"
#include "Support/Users.h"

namespace {

using filestest::Environment;
using filestest::InAChild;
using filestest::TemporaryFolder;
using filestest::WriteFile;

// The path, or the status in words.
std::string Find(OSType type, Boolean create = kDontCreateFolder,
                 FSVolumeRefNum volume = kUserDomain) {
    FSRef ref;
    OSStatus status = FSFindFolder(volume, type, create, &ref);
    UInt8 path[PATH_MAX];
    if (status == noErr) status = FSRefMakePath(&ref, path, sizeof path);
    if (status != noErr) return "status " + std::to_string(status);
    return reinterpret_cast<const char*>(path);
}

const std::string kNotFound = "status " + std::to_string(fnfErr);

// What is to be found for that user.
std::string HomeInDatabase(uid_t user) {
    const auto entry = frameworks::UserOf(user);
    return entry && std::filesystem::is_directory(entry->home)
               ? std::filesystem::canonical(entry->home).string()
               : kNotFound;
}

mode_t ModeOf(const std::string& path) {
    struct stat status;
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status.st_mode & ~static_cast<mode_t>(S_IFMT);
}

bool IsRoot() {
    return geteuid() == 0;
}

// Somebody who is neither root nor the one who runs the tests.
constexpr uid_t kSomebodyElse = 65534;

TEST(Folders, Home_IsTheOneInTheEnvironment) {
    const TemporaryFolder folder;
    const Environment home("HOME", folder.Path().c_str());
    EXPECT_EQ(Find(kCurrentUserFolderType), folder.Path());
    EXPECT_EQ(Find(kCurrentUserFolderType, kDontCreateFolder, kOnAppropriateDisk), folder.Path());
}

TEST(Folders, Home_WithAClosingSlash_IsGivenWithout) {
    const TemporaryFolder folder;
    const Environment home("HOME", (folder.Path() + "//").c_str());
    EXPECT_EQ(Find(kCurrentUserFolderType), folder.Path());
}

TEST(Folders, Home_ThatChanges_IsFoundAnew) {
    const TemporaryFolder one;
    const TemporaryFolder other;
    const Environment first("HOME", one.Path().c_str());
    EXPECT_EQ(Find(kCurrentUserFolderType), one.Path());
    const Environment second("HOME", other.Path().c_str());
    EXPECT_EQ(Find(kCurrentUserFolderType), other.Path());
}

TEST(Folders, Home_ThatIsNoFolder_IsTheOneOfThePasswordDatabase) {
    const TemporaryFolder folder;
    WriteFile(folder / "file");
    const std::string nowhere = folder / "nowhere";
    const std::string file = folder / "file";
    const std::string tooLong = "/" + std::string(PATH_MAX, 'h');
    const std::string expected = HomeInDatabase(geteuid());
    for (const char* const value : {static_cast<const char*>(nullptr), "", "relative", ".",
                                    nowhere.c_str(), file.c_str(), tooLong.c_str()}) {
        const Environment home("HOME", value);
        EXPECT_EQ(Find(kCurrentUserFolderType), expected) << (value == nullptr ? "unset" : value);
    }
}

TEST(Folders, Home_OfSomebodyElse_DoesNotCountAndStaysAsItIs) {
    if (!IsRoot()) GTEST_SKIP() << "only root can give a folder away";
    const TemporaryFolder folder;
    ASSERT_EQ(chown(folder.Path().c_str(), kSomebodyElse, kSomebodyElse), 0);
    const Environment home("HOME", folder.Path().c_str());
    EXPECT_EQ(Find(kCurrentUserFolderType), HomeInDatabase(geteuid()));
    EXPECT_TRUE(std::filesystem::is_empty(folder.Path()));
}

TEST(Folders, Home_AfterAnIdentitySwitch_IsTheOneOfThePasswordDatabase) {
    if (!IsRoot()) GTEST_SKIP() << "only root can become somebody else";
    const TemporaryFolder folder;
    std::filesystem::permissions(folder.Path(), std::filesystem::perms::all);
    const Environment home("HOME", folder.Path().c_str());
    // Users whose home is there, and one whose home is not.
    std::set<uid_t> users;
    while (const passwd* const entry = getpwent()) {
        if (entry->pw_uid != 0 && users.size() < 3 &&
            std::filesystem::is_directory(entry->pw_dir)) {
            users.insert(entry->pw_uid);
        }
    }
    endpwent();
    ASSERT_FALSE(users.empty());
    for (const uid_t user : users) {
        const std::string expected = HomeInDatabase(user);
        InAChild([user, &expected] {
            EXPECT_EQ(seteuid(user), 0);
            EXPECT_EQ(Find(kCurrentUserFolderType), expected);
            EXPECT_EQ(setreuid(user, user), 0);
            EXPECT_EQ(Find(kCurrentUserFolderType), expected);
        });
    }
}

TEST(Folders, Home_OfAUserWithoutAnEntry_IsNotFound) {
    if (!IsRoot()) GTEST_SKIP() << "only root can become somebody else";
    InAChild([] {
        EXPECT_EQ(seteuid(4000000), 0);
        EXPECT_EQ(Find(kCurrentUserFolderType), kNotFound);
    });
}

TEST(Folders, Home_ThatIsFresh_GetsItsStandardFolders) {
    const TemporaryFolder folder;
    const Environment home("HOME", folder.Path().c_str());
    EXPECT_EQ(Find(kCurrentUserFolderType), folder.Path());
    for (const char* const made :
         {"Library", "Library/Application Support", "Library/Preferences"}) {
        EXPECT_TRUE(std::filesystem::is_directory(folder / made)) << made;
        EXPECT_EQ(ModeOf(folder / made), 0700u) << made;
    }
    // Once: what the user takes away stays away.
    std::filesystem::remove_all(folder / "Library");
    EXPECT_EQ(Find(kCurrentUserFolderType), folder.Path());
    EXPECT_FALSE(std::filesystem::exists(folder / "Library"));
}

TEST(Folders, Home_WithStandardFolders_KeepsThemAsTheyAre) {
    const TemporaryFolder folder;
    std::filesystem::create_directories(folder / "Library/Preferences");
    EXPECT_EQ(chmod((folder / "Library/Preferences").c_str(), 0755), 0);
    WriteFile(folder / "Library/Preferences/file", "kept");
    const Environment home("HOME", folder.Path().c_str());
    EXPECT_EQ(Find(kCurrentUserFolderType), folder.Path());
    EXPECT_EQ(ModeOf(folder / "Library/Preferences"), 0755u);
    EXPECT_TRUE(std::filesystem::exists(folder / "Library/Preferences/file"));
    EXPECT_TRUE(std::filesystem::is_directory(folder / "Library/Application Support"));
}

TEST(Folders, Home_ThatCannotBeWritten_IsFoundAllTheSame) {
    const TemporaryFolder folder;
    WriteFile(folder / "Library", "a file where a folder should be");
    const Environment home("HOME", folder.Path().c_str());
    EXPECT_EQ(Find(kCurrentUserFolderType), folder.Path());
}

TEST(Folders, Temporary_IsAFolderForTheUserAlone) {
    const TemporaryFolder folder;
    std::string found;
    EXPECT_EQ(frameworks::FindTemporaryFolderIn(folder.Path(), false, found), ENOENT);
    EXPECT_TRUE(std::filesystem::is_empty(folder.Path()));
    ASSERT_EQ(frameworks::FindTemporaryFolderIn(folder.Path(), true, found), 0);
    EXPECT_EQ(found, folder / ("TemporaryItems-" + std::to_string(geteuid())));
    EXPECT_EQ(ModeOf(found), 0700u);
    // The next process finds the same one.
    std::string again;
    EXPECT_EQ(frameworks::FindTemporaryFolderIn(folder.Path(), false, again), 0);
    EXPECT_EQ(again, found);
}

// Somebody was quicker with the name.
class FoldersPlanted : public ::testing::Test {
  protected:
    void ExpectAFreshOne() {
        std::string found;
        EXPECT_EQ(frameworks::FindTemporaryFolderIn(folder.Path(), false, found), ENOENT);
        ASSERT_EQ(frameworks::FindTemporaryFolderIn(folder.Path(), true, found), 0);
        EXPECT_NE(found, planted);
        EXPECT_EQ(found.find(planted + "."), 0u);
        EXPECT_EQ(ModeOf(found), 0700u);
        EXPECT_TRUE(std::filesystem::is_directory(std::filesystem::symlink_status(found)));
        EXPECT_TRUE(std::filesystem::is_empty(found));
    }

    const TemporaryFolder folder;
    const TemporaryFolder elsewhere;
    const std::string planted = folder / ("TemporaryItems-" + std::to_string(geteuid()));
};

TEST_F(FoldersPlanted, Temporary_InsteadOfALinkToAFolderOfOurs_IsFresh) {
    std::filesystem::create_directory_symlink(elsewhere.Path(), planted);
    ExpectAFreshOne();
    EXPECT_TRUE(std::filesystem::is_empty(elsewhere.Path()));
}

TEST_F(FoldersPlanted, Temporary_InsteadOfADanglingLink_IsFreshAndTheLinkLeadsNowhereStill) {
    std::filesystem::create_symlink(elsewhere / "made", planted);
    ExpectAFreshOne();
    EXPECT_FALSE(std::filesystem::exists(elsewhere / "made"));
}

TEST_F(FoldersPlanted, Temporary_InsteadOfAFile_IsFresh) {
    WriteFile(planted);
    ExpectAFreshOne();
}

TEST_F(FoldersPlanted, Temporary_InsteadOfAFolderThatIsOpenToOthers_IsFresh) {
    std::filesystem::create_directory(planted);
    for (const mode_t mode : {0755u, 0777u, 0770u, 01700u}) {
        ASSERT_EQ(chmod(planted.c_str(), mode), 0);
        ExpectAFreshOne();
    }
}

TEST_F(FoldersPlanted, Temporary_InsteadOfSomebodyElsesFolder_IsFresh) {
    if (!IsRoot()) GTEST_SKIP() << "only root can give a folder away";
    ASSERT_EQ(mkdir(planted.c_str(), 0700), 0);
    ASSERT_EQ(chown(planted.c_str(), kSomebodyElse, static_cast<gid_t>(-1)), 0);
    ExpectAFreshOne();
}

TEST(Folders, Temporary_IsTheSameForBothTypesAndEveryCall) {
    InAChild([] {
        const TemporaryFolder folder;
        const Environment temporary("TMPDIR", folder.Path().c_str());
        const std::string found = Find(kTemporaryFolderType, kCreateFolder, kOnAppropriateDisk);
        EXPECT_EQ(found, folder / ("TemporaryItems-" + std::to_string(geteuid())));
        EXPECT_EQ(Find(kChewableItemsFolderType, kCreateFolder, kOnAppropriateDisk), found);
        EXPECT_EQ(Find(kChewableItemsFolderType), found);
    });
}

TEST(Folders, Temporary_ThatWasTakenAway_IsMadeAnew) {
    InAChild([] {
        const TemporaryFolder folder;
        const Environment temporary("TMPDIR", folder.Path().c_str());
        const std::string found = Find(kTemporaryFolderType, kCreateFolder);
        std::filesystem::remove(found);
        EXPECT_EQ(Find(kTemporaryFolderType, kDontCreateFolder), kNotFound);
        EXPECT_EQ(Find(kTemporaryFolderType, kCreateFolder), found);
    });
}

TEST(Folders, Temporary_WhenTheNameIsTaken_StaysTheFreshOneForTheProcess) {
    InAChild([] {
        const TemporaryFolder folder;
        WriteFile(folder / ("TemporaryItems-" + std::to_string(geteuid())));
        const Environment temporary("TMPDIR", folder.Path().c_str());
        const std::string found = Find(kTemporaryFolderType, kCreateFolder);
        EXPECT_EQ(Find(kTemporaryFolderType, kCreateFolder), found);
        EXPECT_EQ(Find(kChewableItemsFolderType, kDontCreateFolder), found);
    });
}

// With a /tmp of its own, which no other test is using.
bool WithOwnTmp(const std::function<void()>& work) {
    return processtest::WithOwnMounts([&work] {
        EXPECT_EQ(mount("none", "/tmp", "tmpfs", 0, "mode=1777"), 0);
        work();
    });
}

TEST(Folders, Temporary_WithATmpdirThatAnybodyCanChange_IsInTmp) {
    const bool ran = WithOwnTmp([] {
        const TemporaryFolder folder;
        ASSERT_EQ(chmod(folder.Path().c_str(), 0777), 0);
        const Environment temporary("TMPDIR", folder.Path().c_str());
        EXPECT_EQ(Find(kTemporaryFolderType, kCreateFolder),
                  "/tmp/TemporaryItems-" + std::to_string(geteuid()));
        EXPECT_TRUE(std::filesystem::is_empty(folder.Path()));
    });
    if (!ran) GTEST_SKIP() << "mounts of one's own are not allowed here";
}

TEST(Folders, Temporary_WithATmpdirThatOnlyAddingIsAllowedIn_IsThere) {
    InAChild([] {
        const TemporaryFolder folder;
        ASSERT_EQ(chmod(folder.Path().c_str(), 01777), 0);
        const Environment temporary("TMPDIR", folder.Path().c_str());
        EXPECT_EQ(Find(kTemporaryFolderType, kCreateFolder).find(folder.Path()), 0u);
    });
}

TEST(Folders, Temporary_AfterAnIdentitySwitch_IsTheNewUsersOwn) {
    if (!IsRoot()) GTEST_SKIP() << "only root can become somebody else";
    const bool ran = WithOwnTmp([] {
        const TemporaryFolder folder;
        const Environment temporary("TMPDIR", folder.Path().c_str());
        const std::string before = Find(kTemporaryFolderType, kCreateFolder);
        EXPECT_EQ(before.find(folder.Path()), 0u);
        ASSERT_EQ(seteuid(kSomebodyElse), 0);
        const std::string after = Find(kTemporaryFolderType, kCreateFolder);
        EXPECT_EQ(after, "/tmp/TemporaryItems-" + std::to_string(kSomebodyElse));
        struct stat status;
        EXPECT_EQ(lstat(after.c_str(), &status), 0);
        EXPECT_EQ(status.st_uid, kSomebodyElse);
        EXPECT_EQ(seteuid(0), 0);
    });
    if (!ran) GTEST_SKIP() << "mounts of one's own are not allowed here";
}

TEST(Folders, Find_OfWhatIsNotOffered_IsRefused) {
    FSRef ref;
    EXPECT_EQ(FSFindFolder(kUserDomain, kCurrentUserFolderType, kCreateFolder, nullptr), paramErr);
    EXPECT_EQ(FSFindFolder(-32766, kCurrentUserFolderType, kCreateFolder, &ref), nsvErr);
    EXPECT_EQ(FSFindFolder(kUserDomain, 0x70726566, kCreateFolder, &ref), invalidFolderTypeErr);
}

}  // namespace
