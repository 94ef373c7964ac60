// "getIcon": an application's icon as the picture that the dock takes. Icon files are made by
// icnsutils, or by hand; what comes out is compared with what icnsutils makes of the same file.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <random>

#include "support/Applications.h"
#include "support/Files.h"
#include "support/Picture.h"
#include "support/Service.h"

namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr unsigned kSide = 128;
constexpr std::size_t kPixels = std::size_t{kSide} * kSide;
constexpr char kIcon[] = "/Users/Shared/icon.png";
constexpr char kNoBundle[] =
    "Icon: Unable to open application bundle/find icon file, attempting default\n";
constexpr char kNoFile[] = "Icon: Icon file does not exist.\n";
constexpr char kNoIcons[] = "Icon: Unable to loads icons from file.\n";
constexpr char kNoSize[] = "Icon: Unable to extract icon from icon family. Size not available?\n";

// Opaque, with runs of every length and without.
Picture Drawing(unsigned seed, unsigned side = kSide) {
    std::mt19937 random(seed);
    Picture picture{side, side, {}};
    std::uint8_t colour[3] = {};
    for (std::size_t pixel = 0; pixel < std::size_t{side} * side; ++pixel) {
        for (std::uint8_t& part : colour) {
            if (random() % (1 + pixel / side % 8) == 0) {
                part = static_cast<std::uint8_t>(random());
            }
        }
        picture.pixels.insert(picture.pixels.end(), {colour[0], colour[1], colour[2], 255});
    }
    return picture;
}

std::string BigEndian(std::size_t number) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8) {
        bytes += static_cast<char>(number >> shift & 0xFF);
    }
    return bytes;
}

std::string Element(const std::string& type, const std::string& content) {
    return type + BigEndian(content.size() + 8) + content;
}

// The pixels as they are: alpha, red, green, blue.
std::string Raw(const Picture& picture) {
    std::string bytes;
    for (std::size_t pixel = 0; pixel < kPixels; ++pixel) {
        for (const std::size_t part : {3U, 0U, 1U, 2U}) {
            bytes += static_cast<char>(picture.pixels[4 * pixel + part]);
        }
    }
    return bytes;
}

std::string InfoPlist(const std::string& iconFile) {
    return "<?xml version=\"1.0\"?>\n<plist version=\"1.0\"><dict><key>CFBundleIconFile</key>"
           "<string>" +
           iconFile + "</string></dict></plist>\n";
}

class Icon : public ApplicationsTest {
  protected:
    void MakeBundle(const std::string& path, const std::string& infoPlist) {
        MakeApplication(sandbox, path, {"com.example.icon", kStays, "Program", infoPlist});
    }
    // An application with that icon file under the name that its Info.plist gives.
    void MakeApplicationWith(const std::string& path, const std::string& icon) {
        MakeBundle(path, InfoPlist("AppIcon"));
        sandbox.MakeUsersFile(path + "/Contents/Resources/AppIcon.icns", icon);
    }

    // As icnsutils makes an icon file of a picture.
    std::string Icns(const Picture& picture) {
        const std::string png = sandbox.Aside("drawn.png");
        const std::string icns = sandbox.Aside("drawn.icns");
        WritePng(png, picture);
        Run("png2icns '" + icns + "' '" + png + "'");
        return ReadFile(icns);
    }
    // As icnsutils reads the picture of 128 by 128 out of an icon file.
    Picture ByIcnsutils(const std::string& icon) {
        const std::filesystem::path folder = sandbox.Aside("extracted");
        std::filesystem::create_directory(folder);
        WriteFile(folder / "x.icns", icon);
        Run("cd '" + folder.string() + "' && icns2png -x x.icns");
        return ReadPng(folder / "x_128x128x32.png");
    }
    static void Run(const std::string& command) {
        const std::string quietly = "(" + command + ") >/dev/null 2>&1";
        if (std::system(quietly.c_str()) != 0) {
            throw Failed(command + " failed");
        }
    }

    Picture Exported() const { return ReadPng(sandbox.Outside(kIcon)); }
    bool HasIcon() const { return std::filesystem::exists(sandbox.Outside(kIcon)); }
    // The command fails with just this in the log.
    void ExpectMissing(const std::string& path, const std::string& reason) {
        EXPECT_EQ(PrintedFor("getIcon \"" + path + "\"", "IconMissing"), reason);
        EXPECT_FALSE(HasIcon());
    }
};

TEST_F(Icon, OfAFileOfIcnsutils_IsPixelByPixelWhatIcnsutilsReadsOutOfIt) {
    for (unsigned seed = 1; seed <= 4; ++seed) {
        const Picture drawing = Drawing(seed);
        const std::string icon = Icns(drawing);
        MakeApplicationWith("/Applications/Foo.app", icon);
        EXPECT_EQ(Ask("getIcon /Applications/Foo.app"), "IconReady");
        EXPECT_TRUE(Exported() == ByIcnsutils(icon));
        EXPECT_TRUE(Exported() == drawing);
    }
}

TEST_F(Icon, WithPixelsAsTheyAre_KeepsTheirAlpha) {
    Picture drawing = Drawing(5);
    for (std::size_t pixel = 0; pixel < kPixels; ++pixel) {
        drawing.pixels[4 * pixel + 3] = static_cast<std::uint8_t>(pixel);
    }
    MakeApplicationWith("/Applications/Foo.app", Element("icns", Element("it32", Raw(drawing))));
    EXPECT_EQ(Ask("getIcon /Applications/Foo.app"), "IconReady");
    EXPECT_TRUE(Exported() == drawing);
}

TEST_F(Icon, TheMaskBesideIt_IsNotUsed) {
    Picture drawing = Drawing(6);
    for (std::size_t pixel = 0; pixel < kPixels; ++pixel) {
        drawing.pixels[4 * pixel + 3] = static_cast<std::uint8_t>(pixel);
    }
    const std::string icon = Icns(drawing);
    ASSERT_THAT(icon, HasSubstr("t8mk"));
    MakeApplicationWith("/Applications/Foo.app", icon);
    EXPECT_EQ(Ask("getIcon /Applications/Foo.app"), "IconReady");
    Picture expected = ByIcnsutils(icon);
    EXPECT_EQ(expected.pixels.at(4 * 77 + 3), 77);
    for (std::size_t pixel = 0; pixel < kPixels; ++pixel) {
        expected.pixels[4 * pixel + 3] = 255;
    }
    EXPECT_TRUE(Exported() == expected);
}

TEST_F(Icon, TwoInARow_LeaveTheSecondOnly) {
    const Picture drawings[] = {Drawing(7), Drawing(8)};
    MakeApplicationWith("/Applications/A.app", Icns(drawings[0]));
    MakeApplicationWith("/Applications/B.app", Icns(drawings[1]));
    EXPECT_EQ(Ask("getIcon /Applications/A.app"), "IconReady");
    EXPECT_EQ(Ask("getIcon /Applications/B.app"), "IconReady");
    EXPECT_TRUE(Exported() == drawings[1]);
    std::vector<std::string> names;
    for (const auto& entry :
         std::filesystem::directory_iterator(sandbox.Outside("/Users/Shared"))) {
        names.push_back(entry.path().filename().string());
    }
    EXPECT_THAT(names, testing::ElementsAre("icon.png"));
    EXPECT_EQ(ModeOf(sandbox.Outside(kIcon)), 0644U);
}

TEST_F(Icon, ThatCannotBeMade_LeavesTheOneBefore) {
    MakeApplicationWith("/Applications/A.app", Icns(Drawing(9)));
    EXPECT_EQ(Ask("getIcon /Applications/A.app"), "IconReady");
    EXPECT_EQ(Ask("getIcon /Applications/None.app"), "IconMissing");
    EXPECT_TRUE(Exported() == Drawing(9));
}

TEST_F(Icon, OfAPathWithBlanksQuotesAndLettersOfAnyKind_IsFound) {
    const std::string path =
        "/Applications/My \xC3\x9C"
        "ber's \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x96\x8A.app";
    MakeBundle(path, "<plist version=\"1.0\"><dict/></plist>");
    sandbox.MakeUsersFile(path +
                              "/Contents/Resources/My \xC3\x9C"
                              "ber's \xE6\x97\xA5\xE6\x9C\xAC "
                              "\xF0\x9F\x96\x8A.icns",
                          Icns(Drawing(10)));
    EXPECT_EQ(Ask("getIcon \"" + path + "\""), "IconReady");
    EXPECT_TRUE(Exported() == Drawing(10));
    EXPECT_EQ(Ask("getIcon '/Applications/My'"), "IconMissing");
}

TEST_F(Icon, ANameWithoutADot_GetsItsEnding_AndOneWithADotIsUsedUnchanged) {
    for (const auto& [name, file] :
         {std::pair("AppIcon", "AppIcon.icns"),
          {"AppIcon.icns", "AppIcon.icns"},
          {"App.Icon", "App.Icon"},
          {"B\xC3\xBC"
           "cher",
           "B\xC3\xBC"
           "cher.icns"},
          {"\u30A2\u30A4\u30B3\u30F3", "\u30A2\u30A4\u30B3\u30F3.icns"}}) {
        const std::string path = std::string("/Applications/With ") + name + ".app";
        MakeBundle(path, InfoPlist(name));
        sandbox.MakeUsersFile(path + "/Contents/Resources/" + file, Icns(Drawing(11)));
        EXPECT_EQ(PrintedFor("getIcon \"" + path + "\"", "IconReady"), "");
    }
}

TEST_F(Icon, ABundleWithoutAnIconFile_IsTriedWithItsOwnName) {
    for (const char* const infoPlist :
         {"<plist version=\"1.0\"><dict/></plist>", "this is no property list",
          "<plist version=\"1.0\"><dict><key>CFBundleIconFile</key><true/></dict></plist>"}) {
        MakeBundle("/Applications/Foo.app", infoPlist);
        sandbox.MakeUsersFile("/Applications/Foo.app/Contents/Resources/Foo.icns",
                              Icns(Drawing(12)));
        EXPECT_EQ(PrintedFor("getIcon /Applications/Foo.app", "IconReady"), kNoBundle) << infoPlist;
        std::filesystem::remove_all(sandbox.Outside("/Applications/Foo.app"));
    }
}

// Its own name is not tried.
TEST_F(Icon, AnEmptyIconName_IsANameAllTheSame_AndItsFileIsMissing) {
    MakeBundle("/Applications/Foo.app", InfoPlist(""));
    sandbox.MakeUsersFile("/Applications/Foo.app/Contents/Resources/Foo.icns", Icns(Drawing(12)));
    ExpectMissing("/Applications/Foo.app", kNoFile);
}

// The last component of a path that ends with a slash is empty.
TEST_F(Icon, ABundleWithoutAnIconFile_WrittenWithASlash_DeliberatelyHasNoName) {
    MakeBundle("/Applications/Foo.app", "<plist version=\"1.0\"><dict/></plist>");
    sandbox.MakeUsersFile("/Applications/Foo.app/Contents/Resources/Foo.icns", Icns(Drawing(13)));
    ExpectMissing("/Applications/Foo.app/", std::string(kNoBundle) + kNoFile);
}

TEST_F(Icon, ThatIsNotThere_IsMissing) {
    MakeBundle("/Applications/Foo.app", InfoPlist("AppIcon"));
    ExpectMissing("/Applications/Foo.app", kNoFile);
    ExpectMissing("/Applications/None.app", std::string(kNoBundle) + kNoFile);
    ExpectMissing("None", std::string(kNoBundle) + kNoFile);
    EXPECT_EQ(Ask("getIcon '' "), "IconMissing");
}

TEST_F(Icon, FromAFileThatIsNone_IsMissing) {
    const std::string whole = Icns(Drawing(14));
    for (const std::string& bytes :
         {std::string(), std::string("icns"), std::string("not an icon at all"),
          whole.substr(0, whole.size() / 2), whole + "x", "x" + whole.substr(1)}) {
        MakeApplicationWith("/Applications/Foo.app", bytes);
        ExpectMissing("/Applications/Foo.app", kNoIcons);
    }
    MakeBundle("/Applications/Folder.app", InfoPlist("AppIcon"));
    sandbox.MakeUsersFolder("/Applications/Folder.app/Contents/Resources/AppIcon.icns");
    ExpectMissing("/Applications/Folder.app", kNoIcons);
}

TEST_F(Icon, WithoutAnImageOf128Pixels_IsMissingForItsSize) {
    MakeApplicationWith("/Applications/Small.app", Icns(Drawing(15, 48)));
    ExpectMissing("/Applications/Small.app", kNoSize);
    const std::string raw = Raw(Drawing(16));
    for (const std::string& pixels :
         {std::string(), raw.substr(1), raw + "x", std::string(4, '\0'),
          std::string("\0\0\0\0\x7F", 5), std::string("\0\0\0\0\xFF\xFF", 6)}) {
        MakeApplicationWith("/Applications/Foo.app", Element("icns", Element("it32", pixels)));
        ExpectMissing("/Applications/Foo.app", kNoSize);
    }
}

TEST_F(Icon, WhereNobodyMayWrite_IsMissing) {
    MakeApplicationWith("/Applications/Foo.app", Icns(Drawing(17)));
    Protect(sandbox, "/Users/Shared");
    ExpectMissing("/Applications/Foo.app", "Icon: Writing icon file as png failed.\n");
    std::filesystem::remove(sandbox.Outside("/Users/Shared"));
    ExpectMissing("/Applications/Foo.app", "Icon: Unable to resolve target image file.\n");
}

// Everybody may put a link into that folder.
TEST_F(Icon, WhereALinkHasBeenLaid_ReplacesTheLinkAndNotWhatItPointsTo) {
    MakeApplicationWith("/Applications/Foo.app", Icns(Drawing(18)));
    sandbox.MakeUsersFile("/Users/anna/precious", "precious");
    std::filesystem::create_symlink("/Users/anna/precious", sandbox.Outside(kIcon));
    sandbox.GiveToUser(kIcon);
    EXPECT_EQ(Ask("getIcon /Applications/Foo.app"), "IconReady");
    EXPECT_EQ(ReadFile(sandbox.Outside("/Users/anna/precious")), "precious");
    EXPECT_TRUE(Exported() == Drawing(18));
}

TEST_F(Icon, WhereAFileLiesThatHasAnotherName_ReplacesTheNameAndNotTheFile) {
    MakeApplicationWith("/Applications/Foo.app", Icns(Drawing(20)));
    sandbox.MakeUsersFile("/Users/anna/precious", "precious");
    std::filesystem::create_hard_link(sandbox.Outside("/Users/anna/precious"),
                                      sandbox.Outside(kIcon));
    EXPECT_EQ(Ask("getIcon /Applications/Foo.app"), "IconReady");
    EXPECT_EQ(ReadFile(sandbox.Outside("/Users/anna/precious")), "precious");
    EXPECT_TRUE(Exported() == Drawing(20));
}

TEST_F(Icon, WhereAFifoLies_IsMissingAndKeepsNobodyWaiting) {
    MakeApplicationWith("/Applications/Foo.app", Icns(Drawing(21)));
    ASSERT_EQ(mkfifo(sandbox.Outside(kIcon).c_str(), 0666), 0);
    ASSERT_EQ(chmod(sandbox.Outside(kIcon).c_str(), 0666), 0);
    EXPECT_EQ(Ask("getIcon /Applications/Foo.app"), "IconMissing");
    EXPECT_TRUE(std::filesystem::is_fifo(sandbox.Outside(kIcon)));
}

TEST_F(Icon, WhereAnotherUsersLinkLies_IsMissingAndWhatItPointsToStays) {
    if (!Sandbox::CanSwitchUsers()) {
        GTEST_SKIP() << "only root can give a link away";
    }
    MakeApplicationWith("/Applications/Foo.app", Icns(Drawing(22)));
    sandbox.MakeUsersFile("/Users/anna/precious", "precious");
    std::filesystem::create_symlink("/Users/anna/precious", sandbox.Outside(kIcon));
    ASSERT_EQ(lchown(sandbox.Outside(kIcon).c_str(), kStrangerId, kStrangerId), 0);
    ASSERT_EQ(chown(sandbox.Outside("/Users/Shared").c_str(), 0, 0), 0);
    ASSERT_EQ(chmod(sandbox.Outside("/Users/Shared").c_str(), 01777), 0);
    EXPECT_EQ(Ask("getIcon /Applications/Foo.app"), "IconMissing");
    EXPECT_EQ(ReadFile(sandbox.Outside("/Users/anna/precious")), "precious");
}

// In a folder like that nobody takes away what is another's.
TEST_F(Icon, WhereAnotherUsersLies_IsMissing) {
    if (!Sandbox::CanSwitchUsers()) {
        GTEST_SKIP() << "only root can give a file away";
    }
    MakeApplicationWith("/Applications/Foo.app", Icns(Drawing(19)));
    WriteFile(sandbox.Outside(kIcon), "theirs");
    ASSERT_EQ(chmod(sandbox.Outside(kIcon).c_str(), 0666), 0);
    ASSERT_EQ(chown(sandbox.Outside(kIcon).c_str(), 2001, 2001), 0);
    ASSERT_EQ(chown(sandbox.Outside("/Users/Shared").c_str(), 0, 0), 0);
    ASSERT_EQ(chmod(sandbox.Outside("/Users/Shared").c_str(), 01777), 0);
    EXPECT_EQ(Ask("getIcon /Applications/Foo.app"), "IconMissing");
    EXPECT_EQ(ReadFile(sandbox.Outside(kIcon)), "theirs");
}

TEST_F(Icon, AskedForWithTwoBlanks_IsASyntaxError) {
    for (const char* const command :
         {"getIcon", "getIcon  /Applications/X.app", "getIcon /Applications/My App.app"}) {
        EXPECT_THAT(Ask(command), StartsWith("SyntaxError Wrong number of arguments, expected: 1"));
    }
}

}  // namespace
