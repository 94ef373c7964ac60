// The File Manager's iterators, bulk reads and deletion. References have their own tests.

#include <CarbonCore/Files.h>
#include <CarbonCore/MacErrors.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "CarbonCore/FileReference.h"
#include "unit/ApplicationTesting.h"
#include "unit/FilesTesting.h"

namespace {

namespace fs = std::filesystem;

using applicationtest::MakeFolder;
using applicationtest::PathOf;
using applicationtest::RefOf;
using filestest::TemporaryFolder;
using filestest::WriteFile;

constexpr FSRef kEmptyRef = {};

FSRef Garbage() {
    FSRef ref;
    std::fill(std::begin(ref.hidden), std::end(ref.hidden), UInt8{0xA5});
    return ref;
}

class Iterator {
  public:
    explicit Iterator(const std::string& folder, FSIteratorFlags flags = kFSIterateFlat) {
        const FSRef ref = RefOf(folder);
        EXPECT_EQ(FSOpenIterator(&ref, flags, &iterator), noErr);
    }
    Iterator(const Iterator&) = delete;
    Iterator& operator=(const Iterator&) = delete;
    ~Iterator() { EXPECT_EQ(FSCloseIterator(iterator), noErr); }

    OSErr Read(ItemCount most) {
        infos.assign(most, FSCatalogInfo());
        refs.assign(most, FSRef());
        return FSGetCatalogInfoBulk(iterator, most, &actual, nullptr, kFSCatInfoValence,
                                    infos.data(), refs.data(), nullptr, nullptr);
    }

    FSIterator iterator = nullptr;
    ItemCount actual = 0;
    std::vector<FSCatalogInfo> infos;
    std::vector<FSRef> refs;
};

// The valence of every entry, by path.
std::map<std::string, UInt32> Listed(const std::string& folder, ItemCount most = 4096) {
    Iterator iterator(folder);
    EXPECT_EQ(iterator.Read(most), errFSNoMoreItems);
    std::map<std::string, UInt32> listed;
    for (ItemCount index = 0; index < iterator.actual; ++index) {
        listed[PathOf(iterator.refs[index])] = iterator.infos[index].valence;
    }
    EXPECT_EQ(listed.size(), iterator.actual) << "every entry once";
    return listed;
}

OSErr Delete(const std::string& path) {
    const FSRef ref = RefOf(path);
    return FSDeleteObject(&ref);
}

// The reference of what lies in FOLDER under NAME, be it a link.
FSRef EntryOf(const std::string& folder, const std::string& name) {
    Iterator iterator(folder);
    iterator.Read(64);
    for (ItemCount index = 0; index < iterator.actual; ++index) {
        if (PathOf(iterator.refs[index]) == folder + "/" + name) return iterator.refs[index];
    }
    ADD_FAILURE() << "no entry " << name;
    return kEmptyRef;
}

void Fill(const std::string& folder, int count) {
    for (int file = 0; file < count; ++file) {
        WriteFile(folder + "/file " + std::to_string(file));
    }
}

TEST(FileManager, Bulk_OfAFolderOfAnySize_GivesEveryEntryOnce) {
    for (const int count : {0, 1, 15, 16, 17, 32, 33, 2000}) {
        const TemporaryFolder folder;
        Fill(folder.Path(), count);
        EXPECT_EQ(Listed(folder.Path()).size(), static_cast<std::size_t>(count));
    }
}

TEST(FileManager, Bulk_WhenTheArraysAreJustFull_SaysThatMoreMayFollow) {
    const TemporaryFolder folder;
    Fill(folder.Path(), 16);
    Iterator iterator(folder.Path());
    EXPECT_EQ(iterator.Read(16), noErr);
    EXPECT_EQ(iterator.actual, 16u);
    EXPECT_EQ(iterator.Read(16), errFSNoMoreItems);
    EXPECT_EQ(iterator.actual, 0u);
}

TEST(FileManager, Bulk_InPieces_GivesEveryEntryOnce) {
    const TemporaryFolder folder;
    Fill(folder.Path(), 100);
    Iterator iterator(folder.Path());
    std::set<std::string> seen;
    OSErr status = noErr;
    while (status == noErr) {
        status = iterator.Read(7);
        for (ItemCount index = 0; index < iterator.actual; ++index) {
            EXPECT_TRUE(seen.insert(PathOf(iterator.refs[index])).second);
        }
    }
    EXPECT_EQ(status, errFSNoMoreItems);
    EXPECT_EQ(seen.size(), 100u);
}

TEST(FileManager, Bulk_GivesTheNumberOfItemsOfAFolder) {
    const TemporaryFolder folder;
    WriteFile(folder / "file", "not empty");
    MakeFolder(folder / "empty");
    MakeFolder(folder / "one/inner/innermost");
    MakeFolder(folder / "many");
    Fill(folder / "many", 300);
    const auto listed = Listed(folder.Path());
    EXPECT_EQ(listed.at(folder / "file"), 0u);
    EXPECT_EQ(listed.at(folder / "empty"), 0u);
    EXPECT_EQ(listed.at(folder / "one"), 1u);
    EXPECT_EQ(listed.at(folder / "many"), 300u);
}

TEST(FileManager, Bulk_OfALinkToAFolder_GivesNoItems) {
    const TemporaryFolder folder;
    MakeFolder(folder / "target");
    Fill(folder / "target", 3);
    fs::create_symlink(folder / "target", folder / "link");
    fs::create_symlink(folder / "nowhere", folder / "dangling");
    const auto listed = Listed(folder.Path());
    EXPECT_EQ(listed.at(folder / "link"), 0u);
    EXPECT_EQ(listed.at(folder / "dangling"), 0u);
    EXPECT_EQ(listed.at(folder / "target"), 3u);
}

TEST(FileManager, Bulk_OfAFolderThatCannotBeLookedInto_TakesItForNotEmpty) {
    const TemporaryFolder folder;
    fs::permissions(folder.Path(), fs::perms::all);
    MakeFolder(folder / "closed");
    fs::permissions(folder / "closed", fs::perms::none);
    applicationtest::AsOrdinaryUser(
        [&] { EXPECT_EQ(Listed(folder.Path()).at(folder / "closed"), 1u); });
}

TEST(FileManager, Bulk_GivesNamesOfAnyBytes) {
    const TemporaryFolder folder;
    const std::vector<std::string> names = {
        "with blanks ",       "it's \"quoted\"",     "line\nbreak", "M\xC3\xBCnchen \xE6\x9D\xB1",
        "\xFF\xFE not UTF-8", std::string(255, 'x'), ".hidden",     "-rf",
        "$(touch x)",         "back\\slash"};
    for (const std::string& name : names) {
        WriteFile(folder / name);
    }
    const auto listed = Listed(folder.Path());
    EXPECT_EQ(listed.size(), names.size());
    for (const std::string& name : names) {
        EXPECT_EQ(listed.count(folder / name), 1u) << name;
    }
    for (const auto& [path, valence] : listed) {
        EXPECT_EQ(Delete(path), noErr) << path;
    }
    EXPECT_TRUE(fs::is_empty(folder.Path()));
}

TEST(FileManager, Bulk_WithoutInformation_LeavesTheRecordsAlone) {
    const TemporaryFolder folder;
    MakeFolder(folder / "one/inner");
    Iterator iterator(folder.Path());
    FSRef ref = {};
    FSCatalogInfo info = {};
    info.valence = 77;
    ItemCount actual = 0;
    EXPECT_EQ(FSGetCatalogInfoBulk(iterator.iterator, 1, &actual, nullptr, kFSCatInfoNone, &info,
                                   &ref, nullptr, nullptr),
              noErr);
    EXPECT_EQ(actual, 1u);
    EXPECT_EQ(info.valence, 77u);
    EXPECT_EQ(PathOf(ref), folder / "one");
}

TEST(FileManager, Bulk_WithoutReferences_CountsAllTheSame) {
    const TemporaryFolder folder;
    Fill(folder.Path(), 5);
    Iterator iterator(folder.Path());
    FSCatalogInfo infos[8] = {};
    ItemCount actual = 0;
    EXPECT_EQ(FSGetCatalogInfoBulk(iterator.iterator, 8, &actual, nullptr, kFSCatInfoValence, infos,
                                   nullptr, nullptr, nullptr),
              errFSNoMoreItems);
    EXPECT_EQ(actual, 5u);
}

TEST(FileManager, Bulk_RefusesWhatItDoesNotOffer) {
    const TemporaryFolder folder;
    WriteFile(folder / "file");
    Iterator iterator(folder.Path());
    FSCatalogInfo info = {};
    FSRef ref = {};
    ItemCount actual = 99;
    const auto bulk = [&](ItemCount most, FSCatalogInfoBitmap which, FSCatalogInfo* infos) {
        return FSGetCatalogInfoBulk(iterator.iterator, most, &actual, nullptr, which, infos, &ref,
                                    nullptr, nullptr);
    };
    EXPECT_EQ(bulk(0, kFSCatInfoValence, &info), errFSBadItemCount);
    EXPECT_EQ(actual, 0u);
    EXPECT_EQ(bulk(1, kFSCatInfoValence | 1, &info), errFSBadInfoBitmap);
    EXPECT_EQ(bulk(1, kFSCatInfoValence, nullptr), errFSMissingCatInfo);
    Boolean changed = 0;
    EXPECT_EQ(FSGetCatalogInfoBulk(iterator.iterator, 1, &actual, &changed, kFSCatInfoNone, nullptr,
                                   &ref, nullptr, nullptr),
              paramErr);
    EXPECT_EQ(FSGetCatalogInfoBulk(iterator.iterator, 1, nullptr, nullptr, kFSCatInfoNone, nullptr,
                                   &ref, nullptr, nullptr),
              paramErr);
    // Nothing of it has moved the iterator on.
    EXPECT_EQ(bulk(1, kFSCatInfoValence, &info), noErr);
    EXPECT_EQ(PathOf(ref), folder / "file");
}

TEST(FileManager, Bulk_OfASubtree_IsRefused) {
    const TemporaryFolder folder;
    Iterator iterator(folder.Path(), kFSIterateSubtree);
    EXPECT_EQ(iterator.Read(16), errFSIteratorNotSupported);
    EXPECT_EQ(iterator.actual, 0u);
}

TEST(FileManager, Iterator_ThatIsNotOpen_IsRefused) {
    const TemporaryFolder folder;
    FSIterator closed = nullptr;
    const FSRef ref = RefOf(folder.Path());
    ASSERT_EQ(FSOpenIterator(&ref, kFSIterateFlat, &closed), noErr);
    ASSERT_EQ(FSCloseIterator(closed), noErr);
    int memory = 0;
    for (const FSIterator iterator :
         {FSIterator(nullptr), closed, reinterpret_cast<FSIterator>(&memory)}) {
        ItemCount actual = 1;
        EXPECT_EQ(FSGetCatalogInfoBulk(iterator, 1, &actual, nullptr, kFSCatInfoNone, nullptr,
                                       nullptr, nullptr, nullptr),
                  errFSIteratorNotFound);
        EXPECT_EQ(actual, 0u);
        EXPECT_EQ(FSCloseIterator(iterator), errFSIteratorNotFound);
    }
}

TEST(FileManager, OpenIterator_OfNoFolder_IsRefused) {
    const TemporaryFolder folder;
    WriteFile(folder / "file");
    MakeFolder(folder / "gone");
    const FSRef file = RefOf(folder / "file");
    const FSRef gone = RefOf(folder / "gone");
    const FSRef garbage = Garbage();
    const FSRef good = RefOf(folder.Path());
    fs::remove(folder / "gone");
    FSIterator iterator = nullptr;
    EXPECT_EQ(FSOpenIterator(&file, kFSIterateFlat, &iterator), errFSNotAFolder);
    EXPECT_EQ(FSOpenIterator(&gone, kFSIterateFlat, &iterator), fnfErr);
    EXPECT_EQ(FSOpenIterator(&kEmptyRef, kFSIterateFlat, &iterator), paramErr);
    EXPECT_EQ(FSOpenIterator(&garbage, kFSIterateFlat, &iterator), paramErr);
    EXPECT_EQ(FSOpenIterator(nullptr, kFSIterateFlat, &iterator), paramErr);
    EXPECT_EQ(FSOpenIterator(&good, kFSIterateFlat, nullptr), paramErr);
    EXPECT_EQ(FSOpenIterator(&good, 2, &iterator), errFSBadIteratorFlags);
    EXPECT_EQ(iterator, nullptr);
}

TEST(FileManager, OpenIterator_OfAFolderThatIsClosedToUs_IsDenied) {
    const TemporaryFolder folder;
    fs::permissions(folder.Path(), fs::perms::all);
    MakeFolder(folder / "closed");
    fs::permissions(folder / "closed", fs::perms::none);
    applicationtest::AsOrdinaryUser([&] {
        const FSRef closed = RefOf(folder / "closed");
        FSIterator iterator = nullptr;
        EXPECT_EQ(FSOpenIterator(&closed, kFSIterateFlat, &iterator), afpAccessDenied);
    });
}

TEST(FileManager, Iterator_IsClosedByOtherPrograms) {
    const TemporaryFolder folder;
    Iterator iterator(folder.Path());
    int found = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code ignored;
        if (fs::read_symlink(entry.path(), ignored) == folder.Path()) {
            const int flags = fcntl(std::stoi(entry.path().filename()), F_GETFD);
            EXPECT_NE(flags & FD_CLOEXEC, 0);
            ++found;
        }
    }
    EXPECT_EQ(found, 1);
}

TEST(FileManager, Delete_OfAFile_DeletesIt) {
    const TemporaryFolder folder;
    WriteFile(folder / "file", "text");
    EXPECT_EQ(Delete(folder / "file"), noErr);
    EXPECT_FALSE(fs::exists(folder / "file"));
}

TEST(FileManager, Delete_OfAFileThatMayOnlyBeRead_DeletesIt) {
    const TemporaryFolder folder;
    fs::permissions(folder.Path(), fs::perms::all);
    WriteFile(folder / "file", "text");
    fs::permissions(folder / "file", fs::perms::owner_read);
    applicationtest::AsOrdinaryUser([&] { EXPECT_EQ(Delete(folder / "file"), noErr); });
    EXPECT_FALSE(fs::exists(folder / "file"));
}

TEST(FileManager, Delete_OfAnEmptyFolder_DeletesIt) {
    const TemporaryFolder folder;
    MakeFolder(folder / "empty");
    EXPECT_EQ(Delete(folder / "empty"), noErr);
    EXPECT_FALSE(fs::exists(folder / "empty"));
}

TEST(FileManager, Delete_OfAFolderThatHoldsSomething_IsBusy) {
    const TemporaryFolder folder;
    MakeFolder(folder / "full/inner");
    EXPECT_EQ(Delete(folder / "full"), fBsyErr);
    EXPECT_TRUE(fs::exists(folder / "full/inner"));
}

// Somebody else's, in a folder of the user's own: nobody waits for it to become empty.
TEST(FileManager, Delete_OfAFullFolderThatCannotBeLookedInto_IsDenied) {
    const TemporaryFolder folder;
    fs::permissions(folder.Path(), fs::perms::all);
    MakeFolder(folder / "closed/inner");
    MakeFolder(folder / "closed and empty");
    for (const char* const name : {"closed", "closed and empty"}) {
        fs::permissions(folder / name, geteuid() == 0 ? fs::perms::owner_all : fs::perms::none);
    }
    applicationtest::AsOrdinaryUser([&] {
        EXPECT_EQ(Delete(folder / "closed"), afpAccessDenied);
        EXPECT_EQ(Delete(folder / "closed and empty"), noErr);
    });
    fs::permissions(folder / "closed", fs::perms::owner_all);
    EXPECT_TRUE(fs::exists(folder / "closed/inner"));
    EXPECT_FALSE(fs::exists(folder / "closed and empty"));
}

TEST(FileManager, Delete_OfALink_LeavesWhatItPointsTo) {
    const TemporaryFolder folder;
    MakeFolder(folder / "target/inner");
    WriteFile(folder / "file", "text");
    fs::create_symlink(folder / "target", folder / "to folder");
    fs::create_symlink(folder / "file", folder / "to file");
    fs::create_symlink(folder / "nowhere", folder / "dangling");
    for (const char* const name : {"to folder", "to file", "dangling"}) {
        const FSRef link = EntryOf(folder.Path(), name);
        EXPECT_EQ(FSDeleteObject(&link), noErr) << name;
        EXPECT_FALSE(fs::exists(fs::symlink_status(folder / name))) << name;
    }
    EXPECT_TRUE(fs::exists(folder / "target/inner"));
    EXPECT_TRUE(fs::exists(folder / "file"));
}

// A folder that a reference goes through was exchanged for a link to somebody else's.
TEST(FileManager, Delete_WhenAFolderOnTheWayBecameALink_DoesNotFollowIt) {
    const TemporaryFolder folder;
    MakeFolder(folder / "way/inner");
    MakeFolder(folder / "precious/inner");
    WriteFile(folder / "way/inner/file");
    WriteFile(folder / "precious/inner/file");
    const FSRef file = RefOf(folder / "way/inner/file");
    const FSRef inner = RefOf(folder / "way/inner");
    fs::rename(folder / "way", folder / "moved");
    fs::create_symlink(folder / "precious", folder / "way");
    EXPECT_EQ(FSDeleteObject(&file), fnfErr);
    FSIterator iterator = nullptr;
    EXPECT_EQ(FSOpenIterator(&inner, kFSIterateFlat, &iterator), fnfErr);
    EXPECT_TRUE(fs::exists(folder / "precious/inner/file"));
}

// The same between two deletions in one folder, which is kept open for them.
TEST(FileManager, Delete_WhenAFolderOnTheWayBecameALinkMeanwhile_DoesNotFollowIt) {
    const TemporaryFolder folder;
    for (const char* const way : {"way", "precious"}) {
        MakeFolder(folder / way + "/inner");
        for (const char* const file : {"1", "2", "3", "4"}) {
            WriteFile(folder / way + "/inner/" + file);
        }
    }
    std::vector<FSRef> files;
    for (const char* const file : {"1", "2", "3", "4"}) {
        files.push_back(RefOf(folder / "way/inner/" + file));
    }
    EXPECT_EQ(FSDeleteObject(&files[0]), noErr);
    EXPECT_EQ(FSDeleteObject(&files[1]), noErr);
    EXPECT_EQ(FSDeleteObject(&files[2]), noErr);
    fs::rename(folder / "way", folder / "moved");
    fs::create_symlink(folder / "precious", folder / "way");
    FSDeleteObject(&files[3]);
    for (const char* const file : {"1", "2", "3", "4"}) {
        EXPECT_TRUE(fs::exists(folder / "precious/inner/" + file)) << file;
    }
}

TEST(FileManager, Delete_OfSeveralInAFolder_KeepsItOpenUntilOneFailsOrLiesElsewhere) {
    const TemporaryFolder folder;
    MakeFolder(folder / "one");
    MakeFolder(folder / "two");
    const auto isOpen = [&](const std::string& path) {
        for (const fs::directory_entry& entry : fs::directory_iterator("/proc/self/fd")) {
            std::error_code ignored;
            if (fs::read_symlink(entry.path(), ignored) == path) return true;
        }
        return false;
    };
    const auto deleteNew = [&](const std::string& path) {
        WriteFile(path);
        EXPECT_EQ(Delete(path), noErr);
    };
    deleteNew(folder / "one/1");
    EXPECT_FALSE(isOpen(folder / "one"));
    deleteNew(folder / "one/2");
    EXPECT_TRUE(isOpen(folder / "one"));
    deleteNew(folder / "one/3");
    deleteNew(folder / "two/1");
    EXPECT_FALSE(isOpen(folder / "one"));
    deleteNew(folder / "two/2");
    EXPECT_TRUE(isOpen(folder / "two"));
    MakeFolder(folder / "two/full/inner");
    EXPECT_EQ(Delete(folder / "two/full"), fBsyErr);
    EXPECT_FALSE(isOpen(folder / "two"));
}

TEST(FileManager, Delete_OfWhatHasGone_IsNotFound) {
    const TemporaryFolder folder;
    WriteFile(folder / "file");
    const FSRef ref = RefOf(folder / "file");
    EXPECT_EQ(FSDeleteObject(&ref), noErr);
    EXPECT_EQ(FSDeleteObject(&ref), fnfErr);
}

TEST(FileManager, Delete_OfNoReference_IsRefused) {
    const FSRef garbage = Garbage();
    EXPECT_EQ(FSDeleteObject(&kEmptyRef), paramErr);
    EXPECT_EQ(FSDeleteObject(&garbage), paramErr);
    EXPECT_EQ(FSDeleteObject(nullptr), paramErr);
}

TEST(FileManager, Delete_OfTheRoot_IsBusy) {
    EXPECT_EQ(Delete("/"), fBsyErr);
}

TEST(FileManager, Delete_InAFolderThatIsNotOurs_IsDenied) {
    const TemporaryFolder folder;
    fs::permissions(folder.Path(), fs::perms::all);
    MakeFolder(folder / "theirs");
    WriteFile(folder / "theirs/file");
    MakeFolder(folder / "theirs/empty");
    fs::permissions(folder / "theirs", fs::perms::others_read | fs::perms::others_exec |
                                           fs::perms::owner_read | fs::perms::owner_exec);
    applicationtest::AsOrdinaryUser([&] {
        EXPECT_EQ(Delete(folder / "theirs/file"), afpAccessDenied);
        EXPECT_EQ(Delete(folder / "theirs/empty"), afpAccessDenied);
    });
    EXPECT_TRUE(fs::exists(folder / "theirs/file"));
    EXPECT_TRUE(fs::exists(folder / "theirs/empty"));
    fs::permissions(folder / "theirs", fs::perms::owner_all);
}

TEST(FileManager, Delete_OfAMountPoint_IsBusy) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can mount";
    const TemporaryFolder folder;
    MakeFolder(folder / "mounted");
    WriteFile(folder / "file");
    WriteFile(folder / "busy file");
    const bool could = applicationtest::WithMountsOfItsOwn([&] {
        const auto bind = [&](const std::string& what, const std::string& where) {
            return mount((folder / what).c_str(), (folder / where).c_str(), nullptr, MS_BIND,
                         nullptr);
        };
        ASSERT_EQ(bind("file", "busy file"), 0);
        ASSERT_EQ(mount("none", (folder / "mounted").c_str(), "tmpfs", 0, nullptr), 0);
        EXPECT_EQ(Delete(folder / "mounted"), fBsyErr);
        EXPECT_EQ(Delete(folder / "busy file"), fBsyErr);
    });
    if (!could) GTEST_SKIP() << "root may not mount here";
}

TEST(FileManager, ReferencesToAHundredThousandFiles_LeaveNothingBehind) {
    constexpr int kFolders = 50;
    constexpr int kFiles = 2000;
    // In memory where that is possible: a disk takes seconds for as many names.
    const filestest::Environment place("TMPDIR", fs::exists("/dev/shm") ? "/dev/shm" : nullptr);
    const TemporaryFolder folder;
    for (int inner = 0; inner < kFolders; ++inner) {
        const std::string path = folder / ("folder " + std::to_string(inner));
        MakeFolder(path);
        WriteFile(path + "/0");
        // A file under many names is made faster than many files, and is as many entries.
        for (int file = 1; file < kFiles; ++file) {
            ASSERT_EQ(link((path + "/0").c_str(), (path + "/" + std::to_string(file)).c_str()), 0);
        }
    }
    const auto listAll = [&] {
        std::size_t count = 0;
        for (const auto& [path, valence] : Listed(folder.Path())) {
            if (valence == 0) continue;
            Iterator iterator(path);
            EXPECT_EQ(iterator.Read(4096), errFSNoMoreItems);
            count += iterator.actual;
        }
        return count;
    };
    EXPECT_EQ(listAll(), static_cast<std::size_t>(kFolders * kFiles));
    const std::size_t table = frameworks::ReferenceTableSize();
    const std::size_t memory = mallinfo2().uordblks;
    EXPECT_EQ(listAll(), static_cast<std::size_t>(kFolders * kFiles));
    EXPECT_EQ(frameworks::ReferenceTableSize(), table);
    EXPECT_LT(mallinfo2().uordblks, memory + 65536);
}

}  // namespace
