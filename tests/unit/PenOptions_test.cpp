#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <sstream>

#include "TemporaryFolder.h"
#include "driver/Options.h"
#include "driver/Screen.h"
#include "driver/TabletFinder.h"

namespace {

using driver::Options;
using driver::ParseOptions;

TEST(PenOptions, WithoutAny_ReadsTabletsOnTheScreenThatIsFound) {
    const Options options = ParseOptions({});
    EXPECT_EQ(options.problem, "");
    EXPECT_EQ(options.recording, "");
    EXPECT_FALSE(options.screen);
    EXPECT_EQ(options.speed, 1.0);
    EXPECT_EQ(options.taps, 1u);
}

TEST(PenOptions, Values_FollowOrAreJoined) {
    for (const Options& options :
         {ParseOptions({"--replay", "a b", "--speed", "2.5", "--screen", "800x600", "--taps", "3"}),
          ParseOptions({"--replay=a b", "--speed=2.5", "--screen=800x600", "--taps=3"})}) {
        EXPECT_EQ(options.problem, "");
        EXPECT_EQ(options.recording, "a b");
        EXPECT_EQ(options.speed, 2.5);
        EXPECT_EQ(options.screen->width, 800);
        EXPECT_EQ(options.screen->height, 600);
        EXPECT_EQ(options.taps, 3u);
    }
}

TEST(PenOptions, SpeedMax_IsNoSpeed) {
    EXPECT_FALSE(ParseOptions({"--speed", "max"}).speed);
}

TEST(PenOptions, Flags_AreSet) {
    EXPECT_TRUE(ParseOptions({"--list"}).lists);
    EXPECT_TRUE(ParseOptions({"--help"}).helps);
    EXPECT_TRUE(ParseOptions({"--version"}).tellsVersion);
}

TEST(PenOptions, Mistakes_AreNamed) {
    EXPECT_EQ(ParseOptions({"--replya", "a"}).problem, "there is no option --replya");
    EXPECT_EQ(ParseOptions({"file"}).problem, "there is no option file");
    EXPECT_EQ(ParseOptions({"--replay"}).problem, "--replay needs a value");
    EXPECT_EQ(ParseOptions({"--list=1"}).problem, "there is no option --list=1");
    for (const char* const speed : {"", "0", "-1", "fast", "1x", "inf", "nan", "1e999", "MAX"}) {
        EXPECT_EQ(ParseOptions({"--speed", speed}).problem,
                  std::string("--speed: not a value for it: ") + speed);
    }
    for (const char* const screen : {"", "x", "800", "800x", "x600", "0x600", "800x0", "-800x600",
                                     "800x600x", "800 x600", "99999999x5", "65537x1"}) {
        EXPECT_NE(ParseOptions({"--screen", screen}).problem, "") << screen;
    }
    // More than there may be would be waited for in vain.
    EXPECT_EQ(ParseOptions({"--taps", "64"}).problem, "");
    for (const char* const taps : {"", "-1", "x", "1.5", "65", "1000000"}) {
        EXPECT_NE(ParseOptions({"--taps", taps}).problem, "") << taps;
    }
}

TEST(PenOptions, EveryOption_IsInTheManual) {
    std::ifstream file(STYLUSPAD_MANUAL);
    const std::string manual{std::istreambuf_iterator<char>(file), {}};
    std::istringstream help{std::string(driver::kHelp)};
    int options = 0;
    for (std::string word; help >> word;) {
        if (word.compare(0, 2, "--") != 0) continue;
        ++options;
        EXPECT_NE(manual.find("\\-\\-" + word.substr(2)), std::string::npos) << word;
    }
    EXPECT_EQ(options, 7);
}

TEST(PenScreen, OfTheFirstConnectedOutput_IsItsBestMode) {
    const TemporaryFolder cards;
    const std::string folder = cards.Path().string();
    EXPECT_FALSE(driver::FindScreen(folder));
    EXPECT_FALSE(driver::FindScreen(folder + "/nowhere"));
    cards.Write("card0/dev", "226:0\n");
    cards.Write("card0-DP-1/status", "disconnected\n");
    cards.Write("card0-DP-1/modes", "640x480\n");
    EXPECT_FALSE(driver::FindScreen(folder));
    cards.Write("card0-HDMI-A-1/status", "connected\n");
    cards.Write("card0-HDMI-A-1/modes", "");
    cards.Write("card0-eDP-1/status", "connected\n");
    cards.Write("card0-eDP-1/modes", "2560x1440i\n1920x1080\n");
    const std::optional<driver::Screen> screen = driver::FindScreen(folder);
    ASSERT_TRUE(screen);
    EXPECT_EQ(screen->width, 2560);
    EXPECT_EQ(screen->height, 1440);
}

TEST(PenTabletFinder, HasCode_CountsTheWordsFromTheEnd) {
    EXPECT_TRUE(driver::HasCode("1", 0));
    EXPECT_FALSE(driver::HasCode("1", 1));
    EXPECT_TRUE(driver::HasCode("8000000000000000", 63));
    EXPECT_FALSE(driver::HasCode("8000000000000000", 64));
    EXPECT_TRUE(driver::HasCode("1 0", 64));
    // A pen's keys: 0x140 and others, in the sixth word from the end.
    EXPECT_TRUE(driver::HasCode("1c03 0 0 0 0 0", 0x140));
    EXPECT_TRUE(driver::HasCode("1c03 0 0 0 0 0", 0x14a));
    EXPECT_FALSE(driver::HasCode("1c03 0 0 0 0 0", 0x142));
    EXPECT_FALSE(driver::HasCode("1c03 0 0 0 0", 0x140));
    for (const char* const words : {"", " ", "x", "no words at all", "\n"}) {
        EXPECT_FALSE(driver::HasCode(words, 0x140)) << words;
        EXPECT_FALSE(driver::HasCode(words, 0)) << words;
    }
}

}  // namespace
