#include "system/IconCreator.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "FilesTesting.h"
#include "IconTesting.h"
#include "core/Helpers.h"

namespace {

using filestest::TemporaryFolder;
using filestest::WriteFile;

class IconCreatorTest : public testing::Test {
  protected:
    // What the bundle's icon file is called when its Info.plist holds CONTENT.
    std::string IconFileWith(const std::string& content) const {
        std::filesystem::create_directories(folder / "Foo.app/Contents");
        WriteFile(folder / "Foo.app/Contents/Info.plist", XMLDocument(content));
        return IconCreator::GetIconFileFromBundle(folder / "Foo.app");
    }
    std::string IconFileNamed(const std::string& name) const {
        return IconFileWith("<dict><key>CFBundleIconFile</key><string>" + name +
                            "</string></dict>");
    }

    TemporaryFolder folder;
};

TEST_F(IconCreatorTest, ANameWithoutADot_GetsItsEnding) {
    EXPECT_EQ(IconFileNamed("AppIcon"), "AppIcon.icns");
    EXPECT_EQ(IconFileNamed("B\xC3\xBC"
                            "cher"),
              "B\xC3\xBC"
              "cher.icns");
    EXPECT_EQ(IconFileNamed(""), ".icns") << "an empty one is a name, too";
}

// Three bytes a letter.
TEST_F(IconCreatorTest, AJapaneseName_ComesWhole) {
    EXPECT_EQ(IconFileNamed("\u30DA\u30F3"), "\u30DA\u30F3.icns");
    EXPECT_EQ(IconFileNamed("\u7B46.icns"), "\u7B46.icns");
}

TEST_F(IconCreatorTest, ANameWithADot_IsUsedUnchanged) {
    EXPECT_EQ(IconFileNamed("AppIcon.icns"), "AppIcon.icns");
    EXPECT_EQ(IconFileNamed("App.Icon"), "App.Icon");
    EXPECT_EQ(IconFileNamed(".hidden"), ".hidden");
    EXPECT_EQ(IconFileNamed("a.b/c"), "a.b/c") << "anywhere in it";
}

TEST_F(IconCreatorTest, WithoutAName_ThereIsNone) {
    EXPECT_EQ(IconFileWith("<dict/>"), "");
    EXPECT_EQ(IconFileWith("<dict><key>CFBundleIconFile</key><integer>1</integer></dict>"), "");
    EXPECT_EQ(IconFileWith("<array/>"), "");
    EXPECT_EQ(IconCreator::GetIconFileFromBundle(folder / "None.app"), "");
    EXPECT_EQ(IconCreator::GetIconFileFromBundle(""), "");
}

TEST_F(IconCreatorTest, SaveImage_ReplacesAnEarlierFile) {
    const std::string path = folder / "icon of 100%.png";
    const std::string pixels = icontest::RandomPixels(1);
    WriteFile(path, "something else, and longer than any icon that could ever be written");
    const icontest::Image image(pixels, icontest::kSide, icontest::kSide);
    EXPECT_TRUE(IconCreator::SaveImage(image, path));
    EXPECT_EQ(icontest::ReadPNG(path).pixels, pixels);
}

TEST_F(IconCreatorTest, SaveImage_WhereThereCanBeNoFile_FailsWithItsReason) {
    Helpers::logprint("opens the log");
    const std::string pixels = icontest::RandomPixels(2);
    const icontest::Image image(pixels, icontest::kSide, icontest::kSide);
    EXPECT_FALSE(IconCreator::SaveImage(image, ""));
    EXPECT_EQ(Helpers::getLastLog(), L"Icon: Unable to create url to target image file.");
    EXPECT_FALSE(IconCreator::SaveImage(image, folder / "none/icon.png"));
    EXPECT_EQ(Helpers::getLastLog(), L"Icon: Unable to resolve target image file.");
}

}  // namespace
