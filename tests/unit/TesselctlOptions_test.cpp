#include "tesselctl/Options.h"

#include <gtest/gtest.h>

namespace {

using namespace tesselctl;
using Words = std::vector<std::string>;

Options Parse(const Words& arguments) {
    const ParsedOptions parsed = ParseOptions(arguments);
    EXPECT_EQ("", parsed.error);
    return parsed.options;
}

std::string ErrorOf(const Words& arguments) {
    const std::string error = ParseOptions(arguments).error;
    const std::string ending = " (see 'tesselctl --help')";
    EXPECT_EQ(ending,
              error.size() < ending.size() ? "" : error.substr(error.size() - ending.size()));
    return error.substr(0, error.size() - std::min(error.size(), ending.size()));
}

TEST(TesselctlOptions, EverythingBehindTheCommand_BelongsToIt) {
    const Options options = Parse({"checkExists", "--home", "-h", "--", "status"});
    EXPECT_EQ(Action::kSend, options.action);
    EXPECT_EQ((Words{"checkExists", "--home", "-h", "--", "status"}), options.words);
    EXPECT_FALSE(options.home);
}

TEST(TesselctlOptions, OptionsBeforeTheCommand_AreTesselctlsOwn) {
    const Options options = Parse({"--home", "/h", "--timeout=2.5", "platform"});
    EXPECT_EQ("/h", options.home);
    EXPECT_EQ(std::chrono::milliseconds(2500), options.timeout);
    EXPECT_EQ((Words{"platform"}), options.words);
    EXPECT_EQ(std::chrono::milliseconds(0), Parse({"--timeout", "0", "platform"}).timeout);
    EXPECT_EQ((Words{"-x"}), Parse({"--", "-x"}).words);
    EXPECT_EQ((Words{""}), Parse({""}).words);
    EXPECT_EQ((Words{"-"}), Parse({"-"}).words);
}

TEST(TesselctlOptions, CommandsOfItsOwn_AreRecognised) {
    EXPECT_EQ(Action::kShell, Parse({"shell"}).action);
    EXPECT_EQ(Action::kStatus, Parse({"--home", "/h", "status"}).action);
    EXPECT_EQ(Action::kHelp, Parse({"help"}).action);
    EXPECT_EQ((Words{"getIcon"}), Parse({"help", "getIcon"}).words);
    EXPECT_TRUE(Parse({"help", "--list"}).listNames);
    EXPECT_EQ(Action::kHelp, Parse({"--help", "nonsense", "--more"}).action);
    EXPECT_EQ(Action::kVersion, Parse({"-V"}).action);
    const Options aboutLog = Parse({"log", "--help"});
    EXPECT_EQ(Action::kHelp, aboutLog.action);
    EXPECT_EQ((Words{"log"}), aboutLog.words);
}

TEST(TesselctlOptions, LogOptions_MayBeJoinedOrApart) {
    EXPECT_EQ(20U, Parse({"log"}).log.lines);
    EXPECT_EQ(5U, Parse({"log", "-n", "5", "-f"}).log.lines);
    EXPECT_TRUE(Parse({"log", "-n5", "--follow"}).log.follow);
    EXPECT_EQ(7U, Parse({"log", "--lines=7"}).log.lines);
    EXPECT_EQ(std::nullopt, Parse({"log", "--lines", "all"}).log.lines);
    EXPECT_TRUE(Parse({"log", "--enable"}).log.enable);
}

TEST(TesselctlOptions, Mistakes_AreToldInOneLine) {
    EXPECT_EQ("no command given", ErrorOf({}));
    EXPECT_EQ("no command given", ErrorOf({"--home", "/h"}));
    EXPECT_EQ("there is no option --hom", ErrorOf({"--hom", "x"}));
    EXPECT_EQ("there is no option --homes=x", ErrorOf({"--homes=x", "x"}));
    EXPECT_EQ("there is no option -x", ErrorOf({"-x"}));
    EXPECT_EQ("--home needs a folder", ErrorOf({"--home"}));
    EXPECT_EQ("--home needs a folder", ErrorOf({"--home=", "x"}));
    for (const char* seconds :
         {"", "x", "-1", "1s", ".", "1.2.3", "1e3", "99999999999", "inf", "nan"})
        EXPECT_EQ("--timeout needs a number of seconds", ErrorOf({"--timeout", seconds, "x"}))
            << seconds;
    EXPECT_EQ("--timeout needs a number of seconds", ErrorOf({"--timeout"}));
    for (const char* lines : {"", "x", "-1", "1.5", "9999999999"})
        EXPECT_EQ("-n needs a number of lines or 'all'", ErrorOf({"log", "-n", lines})) << lines;
    EXPECT_EQ("-n needs a number of lines or 'all'", ErrorOf({"log", "-n"}));
    EXPECT_EQ("'log' does not take more", ErrorOf({"log", "more"}));
    EXPECT_EQ("'status' takes no arguments", ErrorOf({"status", "x"}));
    EXPECT_EQ("'shell' takes no arguments", ErrorOf({"shell", "x"}));
    EXPECT_EQ("'help' takes one command", ErrorOf({"help", "a", "b"}));
    EXPECT_EQ("--enable only makes the file, it does not follow it",
              ErrorOf({"log", "-f", "--enable"}));
}

}  // namespace
