// The icon of an application as a file of the user's own: the command-line client and the service
// together.
#include <gmock/gmock.h>

#include "support/Applications.h"
#include "support/Files.h"
#include "support/ProgramRun.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

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

// An icon file of 128 x 128 pixels of one colour.
std::string IconFile(const std::string& pixel) {
    std::string pixels;
    for (int i = 0; i < 128 * 128; ++i) {
        pixels += pixel;
    }
    return Element("icns", Element("it32", pixels));
}

class TesselctlIcon : public testing::Test {
  protected:
    TesselctlIcon() { service.WaitUntilListening(); }

    void MakeApplicationWithIcon(const std::string& path, const std::string& pixel) {
        MakeApplication(
            sandbox, path,
            {"com.example.draw", kStays, "Program",
             "<?xml version=\"1.0\"?>\n<plist version=\"1.0\"><dict><key>CFBundleIconFile</key>"
             "<string>AppIcon</string></dict></plist>\n"});
        sandbox.MakeUsersFile(path + "/Contents/Resources/AppIcon.icns", IconFile(pixel));
    }
    // In the user's home.
    ProgramRun Save(const std::string& arguments) {
        return RunProgram(sandbox, {"/bin/sh", "-c",
                                    std::string("cd ") + kUserHome + " && " + kClientFile +
                                        " icon " + arguments});
    }
    std::string File(const std::string& path) const { return ReadFile(sandbox.Outside(path)); }

    Sandbox sandbox;
    Service service{sandbox};
};

TEST_F(TesselctlIcon, AnInstalledApplication_IsFoundByItsName) {
    MakeApplicationWithIcon("/Applications/My Dr\u00E4w.app", "\xFF\x10\x20\x30");
    const ProgramRun run = Save("'My Dr\u00E4w'");
    EXPECT_EQ(run.output, "My Dr\u00E4w.png\n");
    EXPECT_EQ(run.errors, "");
    EXPECT_EQ(run.status, 0);
    const std::string picture = File("/Users/anna/My Dr\u00E4w.png");
    EXPECT_THAT(picture, StartsWith("\x89PNG\r\n\x1A\n"));
    EXPECT_EQ(picture, File("/Users/Shared/icon.png"));
}

TEST_F(TesselctlIcon, AnApplicationOfTheUsersOwn_IsFoundByItsName) {
    MakeApplicationWithIcon("/Users/anna/Applications/Mine.app", "\xFF\x01\x02\x03");
    EXPECT_EQ(Save("Mine").output, "Mine.png\n");
    EXPECT_THAT(File("/Users/anna/Mine.png"), StartsWith("\x89PNG\r\n\x1A\n"));
}

TEST_F(TesselctlIcon, OneAfterTheOther_EveryApplicationHasItsOwn) {
    MakeApplicationWithIcon("/Applications/Red.app", "\xFF\xFF\x10\x10");
    MakeApplicationWithIcon("/Users/anna/Blue.app", "\xFF\x10\x10\xFF");
    EXPECT_EQ(Save("Red").status, 0);
    EXPECT_EQ(Save("Blue.app/ 'a blue.png'").output, "a blue.png\n");
    EXPECT_EQ(File("/Users/anna/a blue.png"), File("/Users/Shared/icon.png"));
    EXPECT_NE(File("/Users/anna/Red.png"), File("/Users/anna/a blue.png"));
}

TEST_F(TesselctlIcon, WithoutAnIcon_NothingIsSaved) {
    MakeApplication(sandbox, "/Applications/Plain.app", {"com.example.plain"});
    const ProgramRun run = Save("Plain");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.errors,
              "tesselctl: /Applications/Plain.app has no icon that the service can save\n");
    EXPECT_FALSE(std::filesystem::exists(sandbox.Outside("/Users/anna/Plain.png")));
    const ProgramRun none = Save("/Applications/None.app");
    EXPECT_EQ(none.status, 64);
    EXPECT_THAT(none.errors, HasSubstr("there is no /Applications/None.app"));
}

}  // namespace
