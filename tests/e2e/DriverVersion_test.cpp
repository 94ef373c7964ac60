// What the pressure port says of the tablet driver's version, by what the driver's bundle says.
#include <gtest/gtest.h>

#include <filesystem>

#include "support/Files.h"
#include "support/Service.h"

namespace {

constexpr char kContents[] = "/Library/Application Support/Tablet/StylusPadDriver.app/Contents";

class DriverVersion : public testing::Test {
  protected:
    DriverVersion() { service.WaitUntilListening(); }

    // The answer where the bundle's Info.plist holds ENTRIES.
    std::string With(const std::string& entries) {
        std::filesystem::create_directories(sandbox.Outside(kContents));
        WriteFile(sandbox.Outside(std::string(kContents) + "/Info.plist"),
                  "<plist version=\"1.0\"><dict>" + entries + "</dict></plist>\n");
        return Answer();
    }
    std::string Answer() { return service.ConnectToPressure().Ask("getDriverVersion"); }

    Sandbox sandbox;
    Service service{sandbox};
};

TEST_F(DriverVersion, IsTheFirstWordOfWhatTheBundleSays) {
    EXPECT_EQ(With("<key>CFBundleGetInfoString</key><string>6.3.1-w2 (2010)</string>"),
              "Success DriverVersion=6.3.1-w2");
}

TEST_F(DriverVersion, OfASingleWord_IsNone) {
    EXPECT_EQ(With("<key>CFBundleGetInfoString</key><string>6.3.1</string>"),
              "Success DriverVersion=none");
}

TEST_F(DriverVersion, ThatIsNoText_IsNone) {
    EXPECT_EQ(With("<key>CFBundleGetInfoString</key><integer>6</integer>"),
              "Success DriverVersion=none");
}

TEST_F(DriverVersion, OfABundleThatDoesNotSay_IsNone) {
    EXPECT_EQ(With("<key>CFBundleIdentifier</key><string>x</string>"),
              "Success DriverVersion=none");
}

TEST_F(DriverVersion, OfAFolderWithoutAnInfo_IsNone) {
    std::filesystem::create_directories(sandbox.Outside(kContents));
    EXPECT_EQ(Answer(), "Success DriverVersion=none");
}

}  // namespace
