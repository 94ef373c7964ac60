#include <ApplicationServices/ApplicationServices.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "CommandTesting.h"
#include "IconTesting.h"

namespace {

using filestest::InAChild;
using filestest::TemporaryFolder;
using filestest::WriteFile;
using icontest::Destination;
using icontest::Image;
using icontest::WritePNG;

std::string Content(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

class CGImageDestinationTest : public ::testing::Test {
  protected:
    std::size_t FileCount() {
        return static_cast<std::size_t>(
            std::distance(std::filesystem::directory_iterator(folder.Path()), {}));
    }

    TemporaryFolder folder;
    const std::string path = folder / "ic\xC3\xB6n 100%.png";
    const std::string pixels = icontest::RandomPixels(1);
};

TEST_F(CGImageDestinationTest, TheFile_HasEveryPixelAsItIsInTheImage) {
    ASSERT_TRUE(WritePNG(pixels, path));
    const icontest::Picture picture = icontest::ReadPNG(path);
    EXPECT_EQ(picture.width, 128u);
    EXPECT_EQ(picture.height, 128u);
    EXPECT_TRUE(picture.pixels == pixels);
    EXPECT_EQ(FileCount(), 1u);
}

// Another reader than the library that has written it: colours under no alpha at all, too.
TEST_F(CGImageDestinationTest, TheFile_IsReadByOthersPixelByPixel) {
    ASSERT_TRUE(WritePNG(pixels, path));
    const std::string plain = folder / "plain";
    WriteFile(plain, pixels);
    const CommandResult read = RunCommand(
        "python3 - " + Quoted(path) + " " + Quoted(plain) +
        " <<'END' 2>&1\n"
        "import struct, sys, zlib\n"
        "png = open(sys.argv[1], 'rb').read()\n"
        "assert png[:8] == b'\\x89PNG\\r\\n\\x1a\\n'\n"
        "position, packed = 8, b''\n"
        "while position < len(png):\n"
        "    size, kind = struct.unpack('>I4s', png[position:position + 8])\n"
        "    data = png[position + 8:position + 8 + size]\n"
        "    assert zlib.crc32(kind + data) == struct.unpack('>I', png[position + 8 + "
        "size:position + 12 + size])[0]\n"
        "    if kind == b'IHDR': assert struct.unpack('>IIBBBBB', data) == (128, 128, 8, 6, 0, 0, "
        "0), data\n"
        "    if kind == b'IDAT': packed += data\n"
        "    position += 12 + size\n"
        "raw, row, out = zlib.decompress(packed), bytearray(512), b''\n"
        "for y in range(128):\n"
        "    method, line = raw[513 * y], bytearray(raw[513 * y + 1:513 * y + 513])\n"
        "    for x in range(512):\n"
        "        a = line[x - 4] if x > 3 else 0\n"
        "        b, c = row[x], row[x - 4] if x > 3 else 0\n"
        "        p = a + b - c\n"
        "        paeth = min((abs(p - a), 0, a), (abs(p - b), 1, b), (abs(p - c), 2, c))[2]\n"
        "        line[x] = (line[x] + (0, a, b, (a + b) // 2, paeth)[method]) % 256\n"
        "    row = line\n"
        "    for x in range(0, 512, 4): out += bytes((line[x + 3], line[x], line[x + 1], line[x + "
        "2]))\n"
        "print(out == open(sys.argv[2], 'rb').read())\n"
        "END\n");
    EXPECT_EQ(read.output, "True\n");
}

TEST_F(CGImageDestinationTest, ImagesOfOtherSizes_AreWrittenToo) {
    const std::string few = pixels.substr(0, 4 * 3 * 2);
    ASSERT_TRUE(WritePNG(few, path, 3, 2));
    EXPECT_TRUE(icontest::ReadPNG(path).pixels == few);
    ASSERT_TRUE(WritePNG(few, path, 1, 6));
    EXPECT_EQ(icontest::ReadPNG(path).height, 6u);
}

TEST_F(CGImageDestinationTest, ASecondFile_ReplacesTheFirst) {
    ASSERT_TRUE(WritePNG(icontest::RandomPixels(2), path));
    ASSERT_TRUE(WritePNG(pixels, path));
    EXPECT_TRUE(icontest::ReadPNG(path).pixels == pixels);
    EXPECT_EQ(FileCount(), 1u);
}

TEST_F(CGImageDestinationTest, ANewFile_CanBeReadByEverybody) {
    const mode_t mask = umask(S_IWGRP | S_IWOTH);
    ASSERT_TRUE(WritePNG(pixels, path));
    umask(mask);
    struct stat status;
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0644u);
}

// In a folder for everybody somebody else may have put it there.
TEST_F(CGImageDestinationTest, ALinkAtThePath_IsReplacedAndNotFollowed) {
    WriteFile(folder / "precious", "old");
    ASSERT_EQ(symlink("precious", path.c_str()), 0);
    ASSERT_TRUE(WritePNG(pixels, path));
    EXPECT_EQ(Content(folder / "precious"), "old");
    EXPECT_FALSE(std::filesystem::is_symlink(path));
}

TEST_F(CGImageDestinationTest, UntilItIsFinalized_NothingIsWritten) {
    const Image image(pixels, 128, 128);
    {
        const Owned<CGImageDestinationRef> destination = Destination(path);
        CGImageDestinationAddImage(destination, image, nullptr);
    }
    EXPECT_EQ(FileCount(), 0u);
}

TEST_F(CGImageDestinationTest, Finalize_WithoutOneImage_IsFalse) {
    const Image image(pixels, 128, 128);
    const Owned<CGImageDestinationRef> none = Destination(path);
    EXPECT_FALSE(CGImageDestinationFinalize(none));
    const Owned<CGImageDestinationRef> null = Destination(path);
    CGImageDestinationAddImage(null, nullptr, nullptr);
    EXPECT_FALSE(CGImageDestinationFinalize(null));
    const Owned<CGImageDestinationRef> two = Destination(path);
    CGImageDestinationAddImage(two, image, nullptr);
    CGImageDestinationAddImage(two, image, nullptr);
    EXPECT_FALSE(CGImageDestinationFinalize(two));
    EXPECT_EQ(FileCount(), 0u);
}

TEST_F(CGImageDestinationTest, Finalize_ASecondTime_IsFalse) {
    const Image image(pixels, 128, 128);
    const Owned<CGImageDestinationRef> destination = Destination(path);
    CGImageDestinationAddImage(destination, image, nullptr);
    EXPECT_TRUE(CGImageDestinationFinalize(destination));
    EXPECT_FALSE(CGImageDestinationFinalize(destination));
}

TEST_F(CGImageDestinationTest, TheDestination_KeepsItsImage) {
    const Owned<CGImageDestinationRef> destination = Destination(path);
    {
        const Image image(pixels, 128, 128);
        CGImageDestinationAddImage(destination, image, nullptr);
    }
    EXPECT_TRUE(CGImageDestinationFinalize(destination));
}

TEST_F(CGImageDestinationTest, Finalize_OnAFullMedium_IsFalseAndLeavesTheFile) {
    WriteFile(path, "old");
    InAChild([&] {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{1000, 1000};
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
        EXPECT_FALSE(WritePNG(pixels, path));
    });
    EXPECT_EQ(Content(path), "old");
    EXPECT_EQ(FileCount(), 1u);
}

TEST_F(CGImageDestinationTest, Finalize_InAFolderThatTakesNoFile_IsFalse) {
    ASSERT_EQ(chmod(folder.Path().c_str(), 0555), 0);
    InAChild([&] {
        constexpr uid_t kNobody = 65534;
        if (geteuid() == 0) {
            ASSERT_EQ(setresuid(kNobody, kNobody, kNobody), 0);
        }
        EXPECT_FALSE(WritePNG(pixels, path));
    });
    ASSERT_EQ(chmod(folder.Path().c_str(), 0755), 0);
    EXPECT_EQ(FileCount(), 0u);
}

TEST_F(CGImageDestinationTest, Create_WhereNoFileCanBe_IsNull) {
    EXPECT_EQ(Destination(folder / "none/icon.png"), nullptr);
    EXPECT_EQ(Destination(folder.Path()), nullptr);
    const Owned<CFURLRef> url =
        CFURLCreateWithString(kCFAllocatorDefault, CFSTR("http://127.0.0.1/icon.png"), nullptr);
    EXPECT_EQ(CGImageDestinationCreateWithURL(url, kUTTypePNG, 1, nullptr), nullptr);
}

TEST_F(CGImageDestinationTest, Create_ForAnotherType_IsNull) {
    EXPECT_EQ(TextOf(kUTTypePNG), "public.png");
    EXPECT_EQ(CGImageDestinationCreateWithURL(FileURL(path), CFSTR("public.jpeg"), 1, nullptr),
              nullptr);
    EXPECT_EQ(CGImageDestinationCreateWithURL(FileURL(path), kUTTypePNG, 0, nullptr), nullptr);
    EXPECT_EQ(CGImageDestinationCreateWithURL(FileURL(path), kUTTypePNG, 2, nullptr), nullptr);
}

TEST_F(CGImageDestinationTest, Create_WithProperties_Stops) {
    const Owned<CFMutableDictionaryRef> properties = MakeDictionary();
    EXPECT_DEATH(CGImageDestinationCreateWithURL(FileURL(path), kUTTypePNG, 1, properties),
                 "CGImageDestinationCreateWithURL: there are no options here");
    const Image image(pixels, 128, 128);
    const Owned<CGImageDestinationRef> destination = Destination(path);
    EXPECT_DEATH(CGImageDestinationAddImage(destination, image, properties),
                 "CGImageDestinationAddImage: there are no properties here");
}

TEST_F(CGImageDestinationTest, OfANullReference_Stops) {
    EXPECT_DEATH(CGImageDestinationCreateWithURL(nullptr, kUTTypePNG, 1, nullptr),
                 "CGImageDestinationCreateWithURL: expected a CFURL");
    EXPECT_DEATH(CGImageDestinationAddImage(nullptr, nullptr, nullptr),
                 "CGImageDestinationAddImage: expected a CGImageDestination");
    EXPECT_DEATH(CGImageDestinationFinalize(nullptr),
                 "CGImageDestinationFinalize: expected a CGImageDestination");
}

}  // namespace
