#include "tesselctl/KeyFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "unit/TesselctlTesting.h"

namespace {

using namespace tesselctl;
using tesselctltest::KeyFileText;
using tesselctltest::kKey;
using tesselctltest::TemporaryHome;
using tesselctltest::WriteFile;

std::string WhyDamaged(const std::string& text) {
    const auto file = ParseKeyFile(text, "F");
    if (file.Ok()) return "<not damaged>";
    EXPECT_EQ(Trouble::kKeyFileDamaged, file.GetProblem().trouble);
    const std::string beginning = "F is damaged or not a key file of the service: ";
    EXPECT_EQ(beginning, file.GetProblem().text.substr(0, beginning.size()));
    return file.GetProblem().text.substr(beginning.size());
}

TEST(TesselctlKeyFile, TheFileOfAService_GivesPortsAndKey) {
    const auto file = ParseKeyFile(KeyFileText(3400, 3655, -1, kKey), "F");
    ASSERT_TRUE(file.Ok()) << file.GetProblem().text;
    EXPECT_EQ(3400, file.Value().PortOf(Server::kCommand));
    EXPECT_EQ(3655, file.Value().PortOf(Server::kPressure));
    EXPECT_EQ(-1, file.Value().PortOf(Server::kApps));
    EXPECT_EQ(kKey, file.Value().key);
}

TEST(TesselctlKeyFile, EveryCutOffFile_IsDamaged) {
    const std::string whole = KeyFileText(3400, 3401, 3402, kKey);
    // The closing element, its space and its line feed are all there is after the last line that
    // matters.
    const std::size_t complete = whole.size() - 2;
    for (std::size_t length = 0; length < complete; length++)
        EXPECT_FALSE(ParseKeyFile(whole.substr(0, length), "F").Ok()) << length;
    EXPECT_TRUE(ParseKeyFile(whole.substr(0, complete), "F").Ok());
}

TEST(TesselctlKeyFile, DamagedFiles_SayWhichLineIsWrong) {
    const std::string whole = KeyFileText(3400, 3401, 3402, kKey);
    const auto with = [&](const std::string& what, const std::string& instead) {
        std::string text = whole;
        return text.replace(text.find(what), what.size(), instead);
    };
    EXPECT_EQ("it is empty", WhyDamaged(""));
    EXPECT_EQ("line 1 is not the expected XML declaration", WhyDamaged("{\"port\": 1}\n"));
    EXPECT_EQ("line 2 is not <root>", WhyDamaged(with("<root>", "<plist>")));
    EXPECT_EQ("line 3 holds no port in <commandPort>", WhyDamaged(with("3400", "34OO")));
    EXPECT_EQ("line 3 holds no port in <commandPort>", WhyDamaged(with("3400", "")));
    EXPECT_EQ("line 4 holds no port in <pressurePort>", WhyDamaged(with("3401", "65536")));
    EXPECT_EQ("line 4 holds no port in <pressurePort>", WhyDamaged(with("3401", "-2")));
    EXPECT_EQ("line 5 holds no port in <airAppsPort>", WhyDamaged(with("3402", "0")));
    EXPECT_EQ("line 5 holds no port in <airAppsPort>", WhyDamaged(with("3402", "03402")));
    EXPECT_EQ("line 5 holds no port in <airAppsPort>", WhyDamaged(with("3402", "99999999999999")));
    EXPECT_EQ("line 6 holds no key in <authKey>", WhyDamaged(with("{", "(")));
    EXPECT_EQ("line 6 holds no key in <authKey>", WhyDamaged(with("0123", "g123")));
    EXPECT_EQ("line 6 holds no key in <authKey>", WhyDamaged(with("0123", "|123")));
    EXPECT_EQ("line 7 is not </root>", WhyDamaged(with("</root>", "</boot>")));
    EXPECT_EQ("something follows </root>", WhyDamaged(whole + "<more/>\n"));
}

TEST(TesselctlKeyFile, AMissingFile_MeansNoServiceWasStarted) {
    const TemporaryHome home;
    const auto file = ReadKeyFile(KeyFilePath(home.Path()));
    ASSERT_FALSE(file.Ok());
    EXPECT_EQ(Trouble::kNoKeyFile, file.GetProblem().trouble);
    EXPECT_EQ(
        "there is no key file " + home.KeyFile() + ": no service has been started in this home",
        file.GetProblem().text);
}

TEST(TesselctlKeyFile, AFileAsWritten_IsRead) {
    const TemporaryHome home;
    home.WriteKeyFile(3400, 3401, 3402);
    const auto file = ReadKeyFile(KeyFilePath(home.Path()));
    ASSERT_TRUE(file.Ok()) << file.GetProblem().text;
    EXPECT_EQ(3402, file.Value().appsPort);
}

TEST(TesselctlKeyFile, APipeOrAFolderOfThatName_IsRefusedAtOnce) {
    const TemporaryHome home;
    const std::string pipePath = home.Path() + "/pipe";
    ASSERT_EQ(0, mkfifo(pipePath.c_str(), 0600));
    for (const std::string& path : {pipePath, home.Path()}) {
        const auto file = ReadKeyFile(path);
        ASSERT_FALSE(file.Ok());
        EXPECT_EQ(path + " is damaged or not a key file of the service: it is not a regular file",
                  file.GetProblem().text);
    }
}

TEST(TesselctlKeyFile, AHugeFile_IsNotReadToItsEnd) {
    const TemporaryHome home;
    const std::string path = home.Path() + "/huge";
    WriteFile(path, "");
    std::filesystem::resize_file(path, 1ULL << 40);
    const auto file = ReadKeyFile(path);
    ASSERT_FALSE(file.Ok());
    EXPECT_EQ(path + " is damaged or not a key file of the service: it is too large",
              file.GetProblem().text);
}

TEST(TesselctlKeyFile, AFileThatTheSystemDoesNotOpen_IsSaidToBeUnreadable) {
    const TemporaryHome home;
    const std::string path = home.Path() + "/loop";
    ASSERT_EQ(0, symlink(path.c_str(), path.c_str()));
    const auto file = ReadKeyFile(path);
    ASSERT_FALSE(file.Ok());
    EXPECT_EQ(Trouble::kKeyFileUnreadable, file.GetProblem().trouble);
    EXPECT_EQ("cannot read the key file " + path + ": Too many levels of symbolic links",
              file.GetProblem().text);
}

}  // namespace
