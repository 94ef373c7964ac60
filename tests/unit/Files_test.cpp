#include <CarbonCore/Files.h>
#include <CarbonCore/MacErrors.h>

#include <cstring>
#include <thread>
#include <vector>

#include "CarbonCore/FileReference.h"
#include "FilesTesting.h"

namespace {

using filestest::TemporaryFolder;
using filestest::WriteFile;

OSStatus MakeRef(const std::string& path, FSRef& ref, Boolean* isDirectory = nullptr) {
    return FSPathMakeRef(reinterpret_cast<const UInt8*>(path.c_str()), &ref, isDirectory);
}

// The path, or the status in words.
std::string PathOf(const FSRef& ref, UInt32 size = 8192) {
    std::vector<UInt8> buffer(size, 'x');
    const OSStatus status = FSRefMakePath(&ref, buffer.data(), size);
    if (status != noErr) return "status " + std::to_string(status);
    return reinterpret_cast<const char*>(buffer.data());
}

// There and back.
std::string Roundtrip(const std::string& path) {
    FSRef ref;
    const OSStatus status = MakeRef(path, ref);
    return status == noErr ? PathOf(ref) : "status " + std::to_string(status);
}

const std::string kNotFound = "status " + std::to_string(fnfErr);

TEST(Files, MakeRef_AndBack_GivesThePath) {
    const TemporaryFolder folder;
    WriteFile(folder / "file");
    EXPECT_EQ(Roundtrip(folder / "file"), folder / "file");
    EXPECT_EQ(Roundtrip(folder.Path()), folder.Path());
}

TEST(Files, MakeRef_OfTheRoot_GivesASlash) {
    EXPECT_EQ(Roundtrip("/"), "/");
    EXPECT_EQ(Roundtrip("//"), "/");
    EXPECT_EQ(Roundtrip("/usr"), "/usr");
}

TEST(Files, MakeRef_WithNeedlessComponents_GivesThePlainPath) {
    const TemporaryFolder folder;
    WriteFile(folder / "file");
    EXPECT_EQ(Roundtrip("/" + folder.Path() + "//./../" +
                        folder.Path().substr(folder.Path().rfind('/') + 1) + "//file"),
              folder / "file");
    EXPECT_EQ(Roundtrip(folder.Path() + "/"), folder.Path());
}

TEST(Files, MakeRef_OfALink_FollowsIt) {
    const TemporaryFolder folder;
    WriteFile(folder / "file");
    std::filesystem::create_symlink("file", folder / "link");
    EXPECT_EQ(Roundtrip(folder / "link"), folder / "file");
    std::filesystem::create_symlink("nowhere", folder / "dangling");
    EXPECT_EQ(Roundtrip(folder / "dangling"), kNotFound);
}

TEST(Files, MakeRef_TellsFoldersFromFiles) {
    const TemporaryFolder folder;
    WriteFile(folder / "file");
    FSRef ref;
    Boolean isDirectory = 7;
    EXPECT_EQ(MakeRef(folder / "file", ref, &isDirectory), noErr);
    EXPECT_EQ(isDirectory, 0);
    EXPECT_EQ(MakeRef(folder.Path(), ref, &isDirectory), noErr);
    EXPECT_EQ(isDirectory, 1);
}

TEST(Files, MakeRef_OfWhatIsNotThere_IsNotFound) {
    const TemporaryFolder folder;
    FSRef ref;
    EXPECT_EQ(MakeRef(folder / "nothing", ref), fnfErr);
    EXPECT_EQ(MakeRef(folder / "nothing/below", ref), fnfErr);
    EXPECT_EQ(MakeRef("", ref), fnfErr);
    WriteFile(folder / "file");
    EXPECT_EQ(MakeRef(folder / "file/below", ref), errFSNotAFolder);
    EXPECT_EQ(MakeRef(folder / std::string(256, 'n'), ref), errFSNameTooLong);
}

TEST(Files, NullPointers_AreRefused) {
    FSRef ref;
    UInt8 buffer[16];
    EXPECT_EQ(FSPathMakeRef(nullptr, &ref, nullptr), paramErr);
    EXPECT_EQ(FSPathMakeRef(reinterpret_cast<const UInt8*>("/"), nullptr, nullptr), paramErr);
    EXPECT_EQ(FSRefMakePath(nullptr, buffer, sizeof buffer), paramErr);
    ASSERT_EQ(MakeRef("/", ref), noErr);
    EXPECT_EQ(FSRefMakePath(&ref, nullptr, 16), paramErr);
}

TEST(Files, MakePath_OfWhatIsNoReference_IsRefused) {
    FSRef ref;
    UInt8 buffer[1024];
    for (const int filling : {0x00, 0xFF, 0x41}) {
        std::memset(&ref, filling, sizeof ref);
        EXPECT_EQ(FSRefMakePath(&ref, buffer, sizeof buffer), paramErr) << filling;
    }
}

TEST(Files, MakePath_OfADamagedReference_IsRefused) {
    const TemporaryFolder folder;
    FSRef ref;
    ASSERT_EQ(MakeRef(folder.Path(), ref), noErr);
    UInt8 buffer[1024];
    for (std::size_t byte = 0; byte < sizeof ref; ++byte) {
        FSRef damaged = ref;
        damaged.hidden[byte] = static_cast<UInt8>(damaged.hidden[byte] ^ 0x10);
        EXPECT_EQ(FSRefMakePath(&damaged, buffer, sizeof buffer), paramErr) << byte;
    }
}

TEST(Files, MakePath_IntoABufferThatIsTooSmall_IsRefused) {
    FSRef ref;
    ASSERT_EQ(MakeRef("/usr", ref), noErr);
    EXPECT_EQ(PathOf(ref, 5), "/usr");
    UInt8 buffer[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(FSRefMakePath(&ref, buffer, 4), pathTooLongErr);
    EXPECT_EQ(std::memcmp(buffer, "abcd", 4), 0);
    EXPECT_EQ(FSRefMakePath(&ref, buffer, 0), pathTooLongErr);
}

TEST(Files, MakePath_OfAFileThatWasDeleted_IsNotFound) {
    const TemporaryFolder folder;
    WriteFile(folder / "file");
    FSRef ref;
    ASSERT_EQ(MakeRef(folder / "file", ref), noErr);
    std::filesystem::remove(folder / "file");
    EXPECT_EQ(PathOf(ref), kNotFound);
    // One that has come back under its name is the same to us.
    WriteFile(folder / "file");
    EXPECT_EQ(PathOf(ref), folder / "file");
}

TEST(Files, MakePath_OfAFileThatWasMoved_IsNotFound) {
    const TemporaryFolder folder;
    WriteFile(folder / "file");
    FSRef ref;
    ASSERT_EQ(MakeRef(folder / "file", ref), noErr);
    std::filesystem::rename(folder / "file", folder / "moved");
    EXPECT_EQ(PathOf(ref), kNotFound);
}

TEST(Files, Reference_IsPlainMemory) {
    const TemporaryFolder folder;
    FSRef ref;
    ASSERT_EQ(MakeRef(folder.Path(), ref), noErr);
    EXPECT_EQ(sizeof ref, 80u);
    unsigned char elsewhere[1 + sizeof ref];
    std::memcpy(elsewhere + 1, &ref, sizeof ref);
    FSRef copy;
    std::memcpy(&copy, elsewhere + 1, sizeof copy);
    std::memset(&ref, 0, sizeof ref);
    EXPECT_EQ(PathOf(copy), folder.Path());
}

TEST(Files, References_ToTheSameFile_AreTheSameBytes) {
    const TemporaryFolder folder;
    WriteFile(folder / "file");
    FSRef one;
    FSRef other;
    std::memset(&one, 0x55, sizeof one);
    ASSERT_EQ(MakeRef(folder / "file", one), noErr);
    ASSERT_EQ(MakeRef(folder.Path() + "//file", other), noErr);
    EXPECT_EQ(std::memcmp(&one, &other, sizeof one), 0);
}

TEST(Files, Names_OfAnyLengthAndAnyBytes_ComeBack) {
    const TemporaryFolder folder;
    for (const std::size_t length : {1u, 62u, 63u, 64u, 65u, 254u, 255u}) {
        const std::string path = folder / std::string(length, 'n');
        WriteFile(path);
        EXPECT_EQ(Roundtrip(path), path) << length;
        const std::string below =
            folder / ("folder" + std::string(length - (length > 6 ? 6 : 0), 'n'));
        if (below.size() - folder.Path().size() - 1 > 255) continue;
        std::filesystem::create_directory(below);
        WriteFile(below + "/file");
        EXPECT_EQ(Roundtrip(below + "/file"), below + "/file") << length;
    }
    for (const char* const name : {"two words", "\xC3\xA4", "not UTF-8 \xFF\x80", "\n", "'\"\\$"}) {
        WriteFile(folder / name);
        EXPECT_EQ(Roundtrip(folder / name), folder / name) << name;
    }
}

TEST(Files, Paths_AsDeepAsTheSystemAllows_ComeBack) {
    const TemporaryFolder folder;
    std::string path = folder.Path();
    const std::string component = "/" + std::string(99, 'd');
    while (path.size() + component.size() < 4000) {
        path += component;
    }
    std::filesystem::create_directories(path);
    EXPECT_EQ(Roundtrip(path), path);
}

TEST(Files, AHundredThousandReferences_DoNotGrowTheTable) {
    const TemporaryFolder folder;
    WriteFile(folder / "file");
    FSRef ref;
    ASSERT_EQ(MakeRef(folder / "file", ref), noErr);
    const std::size_t before = frameworks::ReferenceTableSize();
    for (int number = 0; number < 100000; ++number) {
        // The file system is asked about neither name; only the table is of interest.
        const FSRef made = frameworks::MakeRef(folder / ("file " + std::to_string(number)));
        if (number % 10000 == 0) {
            EXPECT_EQ(frameworks::PathOf(made), folder / ("file " + std::to_string(number)));
        }
    }
    EXPECT_EQ(frameworks::ReferenceTableSize(), before);
}

TEST(Files, AHundredThousandFoldersThatHaveGone_LeaveTheTable) {
    const TemporaryFolder folder;
    const std::string longName(200, 'n');
    for (int number = 0; number < 100000; ++number) {
        frameworks::MakeRef(folder / (longName + std::to_string(number)));
    }
    EXPECT_LT(frameworks::ReferenceTableSize(), 3000u);
}

TEST(Files, Reference_WhoseFolderLeftTheTable_IsNotFoundAndStandsForNothingElse) {
    const TemporaryFolder folder;
    std::filesystem::create_directory(folder / "gone");
    WriteFile(folder / "gone/file");
    std::filesystem::create_directory(folder / "stays");
    WriteFile(folder / "stays/file");
    FSRef gone;
    FSRef stays;
    ASSERT_EQ(MakeRef(folder / "gone/file", gone), noErr);
    ASSERT_EQ(MakeRef(folder / "stays/file", stays), noErr);
    std::filesystem::remove_all(folder / "gone");
    // Enough to have the table looked through, and the free entry taken.
    const std::string longName(200, 'n');
    for (int number = 0; number < 10000; ++number) {
        frameworks::MakeRef(folder / (longName + std::to_string(number)));
    }
    EXPECT_EQ(PathOf(gone), kNotFound);
    EXPECT_FALSE(frameworks::PathOf(gone)) << *frameworks::PathOf(gone);
    EXPECT_EQ(PathOf(stays), folder / "stays/file");
}

TEST(Files, References_MadeOnManyThreads_AreRight) {
    const TemporaryFolder folder;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&folder, thread] {
            const std::string own = folder / std::to_string(thread);
            std::filesystem::create_directories(own + "/" + std::string(100, 'n'));
            for (int turn = 0; turn < 500; ++turn) {
                EXPECT_EQ(Roundtrip(own + "/" + std::string(100, 'n')),
                          own + "/" + std::string(100, 'n'));
                frameworks::MakeRef(own + "/" + std::string(100, 'g') + std::to_string(turn));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace
