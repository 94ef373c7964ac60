#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "CoreFoundation/Stream.h"
#include "PropertyListTesting.h"

namespace {

using filestest::TemporaryFolder;
using filestest::WriteFile;

std::string Content(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

Owned<CFReadStreamRef> Reader(const std::string& path) {
    return CFReadStreamCreateWithFile(kCFAllocatorDefault, FileURL(path));
}

Owned<CFWriteStreamRef> Writer(const std::string& path) {
    return CFWriteStreamCreateWithFile(kCFAllocatorDefault, FileURL(path));
}

class CFStream : public ::testing::Test {
  protected:
    TemporaryFolder folder;
    const std::string path = folder / "file";
};

TEST_F(CFStream, ReadStream_IsOpenedOnce) {
    WriteFile(path, "content");
    const Owned<CFReadStreamRef> stream = Reader(path);
    ASSERT_NE(stream, nullptr);
    EXPECT_TRUE(CFReadStreamOpen(stream));
    EXPECT_FALSE(CFReadStreamOpen(stream));
    CFReadStreamClose(stream);
    CFReadStreamClose(stream);
    EXPECT_FALSE(CFReadStreamOpen(stream));
}

TEST_F(CFStream, ReadStream_OfNoFile_CannotBeOpened) {
    EXPECT_FALSE(CFReadStreamOpen(Reader(path)));
    EXPECT_FALSE(CFReadStreamOpen(Reader(folder.Path())));
}

TEST_F(CFStream, ReadStream_OfAPipe_CannotBeOpened) {
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_FALSE(CFReadStreamOpen(Reader(path)));
}

TEST_F(CFStream, ReadStream_GoesOnWhereItHasStopped) {
    std::string large(300000, 'x');
    large += "the end";
    WriteFile(path, large);
    const Owned<CFReadStreamRef> stream = Reader(path);
    __CFReadStream& object = *stream;
    EXPECT_FALSE(object.Read(1));
    ASSERT_TRUE(CFReadStreamOpen(stream));
    EXPECT_EQ(object.Read(300000), std::string(300000, 'x'));
    EXPECT_EQ(object.Read(0), "");
    EXPECT_EQ(object.Read(1000), "the end");
    EXPECT_EQ(object.Read(1000), "");
    CFReadStreamClose(stream);
    EXPECT_FALSE(object.Read(1));
}

TEST_F(CFStream, OfAnAddressWithoutAPath_IsNull) {
    const Owned<CFURLRef> url =
        CFURLCreateWithString(kCFAllocatorDefault, CFSTR("http://127.0.0.1/file"), nullptr);
    EXPECT_EQ(CFReadStreamCreateWithFile(kCFAllocatorDefault, url), nullptr);
    EXPECT_EQ(CFWriteStreamCreateWithFile(kCFAllocatorDefault, url), nullptr);
}

TEST_F(CFStream, WriteStream_IsOpenedOnce) {
    const Owned<CFWriteStreamRef> stream = Writer(path);
    ASSERT_NE(stream, nullptr);
    EXPECT_TRUE(CFWriteStreamOpen(stream));
    EXPECT_FALSE(CFWriteStreamOpen(stream));
    CFWriteStreamClose(stream);
    CFWriteStreamClose(stream);
    EXPECT_FALSE(CFWriteStreamOpen(stream));
}

TEST_F(CFStream, WriteStream_ClosedWithoutAList_LeavesTheFile) {
    WriteFile(path, "old");
    const Owned<CFWriteStreamRef> stream = Writer(path);
    ASSERT_TRUE(CFWriteStreamOpen(stream));
    CFWriteStreamClose(stream);
    EXPECT_EQ(Content(path), "old");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.Path()), {}), 1);
}

TEST_F(CFStream, WriteStream_ThatIsReleasedOpen_LeavesTheFileAndNothingBeside) {
    WriteFile(path, "old");
    {
        const Owned<CFWriteStreamRef> stream = Writer(path);
        ASSERT_TRUE(CFWriteStreamOpen(stream));
    }
    EXPECT_EQ(Content(path), "old");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.Path()), {}), 1);
}

TEST_F(CFStream, WriteStream_TakesOneReplacement) {
    const Owned<CFWriteStreamRef> stream = Writer(path);
    __CFWriteStream& object = *stream;
    EXPECT_FALSE(object.Replace("early"));
    ASSERT_TRUE(CFWriteStreamOpen(stream));
    EXPECT_TRUE(object.Replace("new"));
    EXPECT_EQ(Content(path), "new");
    EXPECT_FALSE(object.Replace("newer"));
    EXPECT_EQ(Content(path), "new");
}

TEST_F(CFStream, WriteStream_WithoutAFolder_CannotBeOpened) {
    EXPECT_FALSE(CFWriteStreamOpen(Writer(folder / "none/file")));
    EXPECT_FALSE(CFWriteStreamOpen(Writer(folder.Path())));
}

TEST_F(CFStream, WriteStream_InAFolderThatTakesNoNewFile_CannotBeOpened) {
    WriteFile(path, "old");
    ASSERT_EQ(chmod(path.c_str(), 0666), 0);
    ASSERT_EQ(chmod(folder.Path().c_str(), 0555), 0);
    filestest::InAChild([&] {
        constexpr uid_t kNobody = 65534;
        if (geteuid() == 0) {
            ASSERT_EQ(setresuid(kNobody, kNobody, kNobody), 0);
        }
        EXPECT_FALSE(CFWriteStreamOpen(Writer(path)));
    });
    ASSERT_EQ(chmod(folder.Path().c_str(), 0700), 0);
    EXPECT_EQ(Content(path), "old");
}

TEST_F(CFStream, OfANullReference_Stops) {
    EXPECT_DEATH(CFReadStreamCreateWithFile(kCFAllocatorDefault, nullptr),
                 "CFReadStreamCreateWithFile: expected a CFURL, got a null reference");
    EXPECT_DEATH(CFWriteStreamCreateWithFile(kCFAllocatorDefault, nullptr),
                 "CFWriteStreamCreateWithFile: expected a CFURL");
    EXPECT_DEATH(CFReadStreamOpen(nullptr), "CFReadStreamOpen: expected a CFReadStream");
    EXPECT_DEATH(CFReadStreamClose(nullptr), "CFReadStreamClose: expected a CFReadStream");
    EXPECT_DEATH(CFWriteStreamOpen(nullptr), "CFWriteStreamOpen: expected a CFWriteStream");
    const Owned<CFReadStreamRef> reader = Reader(path);
    EXPECT_DEATH(CFWriteStreamClose(reinterpret_cast<CFWriteStreamRef>(CFReadStreamRef(reader))),
                 "CFWriteStreamClose: expected a CFWriteStream, got a CFReadStream");
}

}  // namespace
