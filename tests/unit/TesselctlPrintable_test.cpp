#include "tesselctl/Printable.h"

#include <gtest/gtest.h>

namespace {

using namespace tesselctl;
using namespace std::string_literals;

TEST(TesselctlPrintable, ControlCharacters_AreShownInsteadOfDone) {
    EXPECT_EQ("^[[31mred^[[0m", Printable("\033[31mred\033[0m"));
    EXPECT_EQ("a^@b^M^J^I^?", Printable("a\0b\r\n\t\x7F"s));
}

TEST(TesselctlPrintable, ControlCharactersOfTheSecondSet_AreShownInEitherEncoding) {
    EXPECT_EQ("\\x9b2J", Printable("\xC2\x9B"
                                   "2J"));
    EXPECT_EQ("\\x9b2J", Printable("\x9B"
                                   "2J"));
}

TEST(TesselctlPrintable, TextOfAnyLanguage_StaysAsItIs) {
    const std::string text = "it's \"\u00FC\u20AC\U0001F58A\" ~\\";
    EXPECT_EQ(text, Printable(text));
    EXPECT_EQ("", Printable(""));
}

TEST(TesselctlPrintable, BytesThatAreNotUtf8_AreShownAsNumbers) {
    EXPECT_EQ("\\xc3", Printable("\xC3"));
    EXPECT_EQ("\\xc0\\x8a", Printable("\xC0\x8A"));
    EXPECT_EQ("\\xff|\\xf8", Printable("\xFF|\xF8"));
    EXPECT_EQ("\\xe2\\x82a", Printable("\xE2\x82"
                                       "a"));
}

TEST(TesselctlPrintable, AJsonString_IsAsciiWithEscapes) {
    EXPECT_EQ("\"a\\\"b\\\\c\"", JsonString("a\"b\\c"));
    EXPECT_EQ("\"\\u0000\\u001b\\u000a\\u007f\"", JsonString("\0\033\n\x7F"s));
    EXPECT_EQ("\"\\u00fc\\u20ac\\ud83d\\udd8a\"", JsonString("\u00FC\u20AC\U0001F58A"));
    EXPECT_EQ("\"\\ufffd\\ufffdx\"", JsonString("\xFF\xC3x"));
}

}  // namespace
