#include <Carbon/Carbon.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "CarbonCore/Handle.h"
#include "CommandTesting.h"
#include "FilesTesting.h"
#include "IconTesting.h"
#include "LaunchServices/IconFamily.h"

namespace {

using filestest::TemporaryFolder;
using filestest::WriteFile;
using frameworks::HandleContent;
using icontest::Element;
using icontest::Family;
using icontest::kBytes;
using icontest::Packed;

// Owns a handle.
class OwnedHandle {
  public:
    explicit OwnedHandle(Handle itsHandle) : handle(itsHandle) {}
    OwnedHandle(const OwnedHandle&) = delete;
    OwnedHandle& operator=(const OwnedHandle&) = delete;
    ~OwnedHandle() { DisposeHandle(handle); }

    operator Handle() const { return handle; }

  private:
    const Handle handle;
};

FSRef RefTo(const std::string& path) {
    FSRef ref{};
    EXPECT_EQ(FSPathMakeRef(reinterpret_cast<const UInt8*>(path.c_str()), &ref, nullptr), noErr)
        << path;
    return ref;
}

OSStatus Read(const std::string& path, IconFamilyHandle* family) {
    const FSRef ref = RefTo(path);
    return ReadIconFromFSRef(&ref, family);
}

class IconServices : public ::testing::Test {
  protected:
    // The pixels of the file's icon, or the status in words: "read -43", "get -2582".
    std::string Pixels() {
        IconFamilyHandle family = nullptr;
        const OSStatus read = Read(path, &family);
        if (read != noErr) {
            EXPECT_EQ(family, nullptr);
            return "read " + std::to_string(read);
        }
        const OwnedHandle familyOwner(reinterpret_cast<Handle>(family));
        const OwnedHandle pixels(NewHandle(static_cast<Size>(kBytes)));
        const OSErr got = GetIconFamilyData(family, kThumbnail32BitData, pixels);
        if (got != noErr) {
            EXPECT_EQ(HandleContent(pixels), "");
            return "get " + std::to_string(got);
        }
        return std::string(HandleContent(pixels));
    }
    std::string PixelsOf(const std::string& content) {
        WriteFile(path, content);
        return Pixels();
    }

    TemporaryFolder folder;
    const std::string path = folder / "Some Ic\xC3\xB6n.icns";
    const std::string cannotRead = "read -2582";
    const std::string cannotGet = "get -2582";
};

TEST_F(IconServices, RawPixels_AreTakenAsTheyStand) {
    const std::string pixels = icontest::RandomPixels(1);
    EXPECT_EQ(PixelsOf(Family(Element("it32", pixels))), pixels);
}

TEST_F(IconServices, PackedPixels_AreUnpackedAndOpaque) {
    for (const std::string& pixels :
         {icontest::PicturePixels(), icontest::RandomPixels(2), std::string(kBytes, '\x07')}) {
        EXPECT_EQ(PixelsOf(Family(Element("it32", Packed(pixels)))), icontest::Opaque(pixels));
    }
}

TEST_F(IconServices, OtherElements_AreNotLookedAt) {
    const std::string pixels = icontest::PicturePixels();
    const std::string mask(icontest::kPixels, '\x22');
    EXPECT_EQ(PixelsOf(Family(Element("TOC ", std::string(16, '\x01')) + Element("ics#", "abc") +
                              Element("t8mk", mask) + Element("it32", Packed(pixels)) +
                              Element("ic07", "\x89PNG") + Element("????", ""))),
              pixels);
}

TEST_F(IconServices, OfTwoElements_TheFirstOneCounts) {
    const std::string first = icontest::RandomPixels(3);
    EXPECT_EQ(PixelsOf(Family(Element("it32", first) + Element("it32", "broken"))), first);
    EXPECT_EQ(PixelsOf(Family(Element("it32", "broken") + Element("it32", first))), cannotGet);
}

TEST_F(IconServices, AFamilyWithoutThatImage_IsReadButHasNoPixels) {
    EXPECT_EQ(PixelsOf(Family("")), cannotGet);
    EXPECT_EQ(PixelsOf(Family(Element("ic08", "\x89PNG"))), cannotGet);
    EXPECT_EQ(PixelsOf(Family(Element("IT32", icontest::RandomPixels(4)))), cannotGet);
}

TEST_F(IconServices, Read_OfAFileThatIsNotFilledExactly_IsRefused) {
    const std::string good = Family(Element("it32", icontest::RandomPixels(5)));
    EXPECT_EQ(PixelsOf(good + "x"), cannotRead);
    EXPECT_EQ(PixelsOf(good.substr(0, good.size() - 1)), cannotRead);
    EXPECT_EQ(PixelsOf(Family(Element("it32", "abc") + "x")), cannotRead);
    EXPECT_EQ(PixelsOf(Family(Element("it32", "abc") + "ic08\0\0\0")), cannotRead);
    // An element that is larger than its family, smaller than its own head, or without end.
    EXPECT_EQ(PixelsOf(Family("it32" + icontest::BigEndian(13) + "abcd")), cannotRead);
    EXPECT_EQ(PixelsOf(Family("it32" + icontest::BigEndian(7) + "abcd")), cannotRead);
    EXPECT_EQ(PixelsOf(Family("it32" + icontest::BigEndian(0) + "abcd")), cannotRead);
    EXPECT_EQ(PixelsOf(Family("it32" + icontest::BigEndian(0xFFFFFFFF) + "abcd")), cannotRead);
    EXPECT_EQ(PixelsOf("icns" + icontest::BigEndian(0xFFFFFFFF)), cannotRead);
}

TEST_F(IconServices, Read_OfWhatIsNoIconFile_IsRefused) {
    for (const std::string& content :
         {std::string(), std::string("icns"), std::string("icns\0\0\0", 7),
          std::string("\x89PNG\r\n\x1A\n"), std::string(1000, '\0'),
          Element("icnt", Element("it32", icontest::RandomPixels(6)))}) {
        EXPECT_EQ(PixelsOf(content), cannotRead);
    }
}

TEST_F(IconServices, PackedPixelsThatAreTooShortOrTooLong_AreRefused) {
    const std::string good = Packed(icontest::PicturePixels());
    EXPECT_EQ(PixelsOf(Family(Element("it32", good + '\0'))), cannotGet);
    EXPECT_EQ(PixelsOf(Family(Element("it32", ""))), cannotGet);
    for (std::size_t length = 0; length < good.size(); length += 97) {
        EXPECT_EQ(PixelsOf(Family(Element("it32", good.substr(0, length)))), cannotGet) << length;
    }
    EXPECT_EQ(PixelsOf(Family(Element("it32", good.substr(0, good.size() - 1)))), cannotGet);
    const std::string raw = icontest::RandomPixels(7);
    EXPECT_EQ(PixelsOf(Family(Element("it32", raw + "x"))), cannotGet);
    EXPECT_EQ(PixelsOf(Family(Element("it32", raw.substr(1)))), cannotGet);
}

TEST_F(IconServices, PackedPixelsWithoutTheFourZeroes_AreRefused) {
    const std::string good = Packed(icontest::PicturePixels());
    EXPECT_EQ(PixelsOf(Family(Element("it32", good.substr(4)))), cannotGet);
    EXPECT_EQ(PixelsOf(Family(Element("it32", "\1" + good.substr(1)))), cannotGet);
}

TEST_F(IconServices, ARunBeyondTheLastPixelOfItsColour_IsRefused) {
    // 126 runs of 130 are 16,380 pixels; four are left.
    std::string colour;
    for (int run = 0; run < 126; ++run) {
        colour += "\xFF\x05";
    }
    const std::string fits = colour + "\x81\x05";
    const std::string exact = std::string(4, '\0') + fits + fits + fits;
    EXPECT_EQ(PixelsOf(Family(Element("it32", exact))).size(), kBytes);
    for (const std::string& beyond : {colour + "\x82\x05", colour + "\x04zzzzz"}) {
        EXPECT_EQ(PixelsOf(Family(Element("it32", std::string(4, '\0') + beyond + fits + fits))),
                  cannotGet);
        EXPECT_EQ(PixelsOf(Family(Element("it32", std::string(4, '\0') + fits + fits + beyond))),
                  cannotGet);
    }
}

TEST_F(IconServices, WithAnyByteOfTheHeadsChanged_IsReadOrRefused) {
    const std::string good =
        Family(Element("ics#", "abcd") + Element("it32", Packed(std::string(kBytes, '\x07'))));
    std::size_t refused = 0;
    for (std::size_t position = 0; position < 60; ++position) {
        for (int bit = 0; bit < 8; ++bit) {
            std::string changed = good;
            changed[position] = static_cast<char>(changed[position] ^ 1 << bit);
            refused += PixelsOf(changed).size() < 100 ? 1 : 0;
        }
    }
    EXPECT_GT(refused, 100u);
}

TEST_F(IconServices, RandomBytes_AreRefused) {
    std::mt19937 random(4711);
    for (int round = 0; round < 300; ++round) {
        std::string content;
        for (std::size_t count = random() % 200; count > 0; --count) {
            content += static_cast<char>(random());
        }
        EXPECT_EQ(PixelsOf(content), cannotRead);
        // Packed by chance it never is.
        EXPECT_EQ(PixelsOf(Family(Element("it32", content))), cannotGet);
    }
}

TEST_F(IconServices, Read_OfWhatCannotBeRead_SaysWhy) {
    WriteFile(path, "x");
    const FSRef gone = RefTo(path);
    std::filesystem::remove(path);
    IconFamilyHandle family = nullptr;
    EXPECT_EQ(ReadIconFromFSRef(&gone, &family), fnfErr);
    EXPECT_EQ(Read(folder.Path(), &family), noIconDataAvailableErr);
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(Read(folder / "pipe", &family), noIconDataAvailableErr);
    const FSRef none{};
    EXPECT_EQ(ReadIconFromFSRef(&none, &family), paramErr);
    EXPECT_EQ(ReadIconFromFSRef(nullptr, &family), paramErr);
    EXPECT_EQ(ReadIconFromFSRef(&gone, nullptr), paramErr);
    EXPECT_EQ(family, nullptr);
}

TEST_F(IconServices, Read_OfAFileLargerThanAnyIcon_IsRefused) {
    WriteFile(path, "icns");
    std::filesystem::resize_file(path, (std::uintmax_t{64} << 20) + 1);
    EXPECT_EQ(Pixels(), cannotRead);
}

TEST_F(IconServices, GetIconFamilyData_GivesTheHandleTheSizeOfTheImage) {
    WriteFile(path, Family(Element("it32", icontest::RandomPixels(8))));
    IconFamilyHandle family = nullptr;
    ASSERT_EQ(Read(path, &family), noErr);
    const OwnedHandle owner(reinterpret_cast<Handle>(family));
    for (const Size size : {Size{0}, Size{1}, Size{100000}}) {
        const OwnedHandle pixels(NewHandle(size));
        EXPECT_EQ(GetIconFamilyData(family, kThumbnail32BitData, pixels), noErr);
        EXPECT_EQ(HandleContent(pixels), icontest::RandomPixels(8));
    }
}

TEST_F(IconServices, GetIconFamilyData_OfAnotherType_IsRefused) {
    WriteFile(path, Family(Element("ics#", "abc")));
    IconFamilyHandle family = nullptr;
    ASSERT_EQ(Read(path, &family), noErr);
    const OwnedHandle owner(reinterpret_cast<Handle>(family));
    const OwnedHandle pixels(NewHandle(3));
    EXPECT_EQ(GetIconFamilyData(family, 0x69637323, pixels), paramErr);
    EXPECT_EQ(GetIconFamilyData(nullptr, kThumbnail32BitData, pixels), paramErr);
    EXPECT_EQ(GetIconFamilyData(family, kThumbnail32BitData, nullptr), paramErr);
}

// --- Other people's tools

TEST_F(IconServices, WhatPng2icnsHasMade_IsReadPixelByPixel) {
    for (const std::string& pixels :
         {icontest::PicturePixels(), icontest::Opaque(icontest::RandomPixels(9))}) {
        const std::string png = folder / "in.png";
        ASSERT_TRUE(icontest::WritePNG(pixels, png));
        const CommandResult made =
            RunCommand("png2icns " + Quoted(path) + " " + Quoted(png) + " 2>&1");
        ASSERT_EQ(made.status, 0) << made.output;
        EXPECT_TRUE(Pixels() == pixels) << made.output;
        std::filesystem::remove(path);
    }
}

TEST_F(IconServices, WhatIcns2pngSees_IsWhatIsRead) {
    const std::string pixels = icontest::PicturePixels();
    const std::string icon = folder / "icon.icns";
    WriteFile(icon, Family(Element("it32", Packed(pixels)) +
                           Element("t8mk", std::string(icontest::kPixels, '\xFF'))));
    const CommandResult made =
        RunCommand("icns2png -x -o " + Quoted(folder.Path()) + " " + Quoted(icon) + " 2>&1");
    ASSERT_EQ(made.status, 0) << made.output;
    const icontest::Picture theirs = icontest::ReadPNG(folder / "icon_128x128x32.png");
    std::filesystem::copy(icon, path);
    EXPECT_TRUE(Pixels() == theirs.pixels);
}

}  // namespace
