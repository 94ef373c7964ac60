#include <CoreFoundation/CFString.h>
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "CFTestSupport.h"
#include "CoreFoundation/String.h"

namespace {

CFStringRef Create(const char* text) {
    return CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingUTF8);
}

CFComparisonResult Compare(const char* one, const char* other) {
    const Owned<CFStringRef> left = MakeString(one);
    const Owned<CFStringRef> right = MakeString(other);
    return CFStringCompare(left, right, 0);
}

TEST(CFString, Create_OfEveryLengthOfCharacter_GivesTheSameTextBack) {
    for (const char* text : {"", "a", "plain text", "\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80",
                             "\xED\x9F\xBF", "\xEE\x80\x80", "\xEF\xBF\xBF", "\xF0\x90\x80\x80",
                             "\xF4\x8F\xBF\xBF", "Z\xC3\xBCrich \xE6\x9D\xB1\xE4\xBA\xAC"}) {
        const Owned<CFStringRef> string = Create(text);
        ASSERT_NE(string, nullptr) << text;
        EXPECT_EQ(TextOf(string), text);
    }
}

TEST(CFString, Create_OfMalformedUTF8_GivesNull) {
    const std::vector<const char*> malformed = {
        "\x80",              // a continuation without a lead
        "\xBF",              //
        "a\x80",             //
        "\xC0\x80",          // overlong NUL
        "\xC1\xBF",          // overlong in two bytes
        "\xE0\x9F\xBF",      // overlong in three bytes
        "\xF0\x8F\xBF\xBF",  // overlong in four bytes
        "\xED\xA0\x80",      // lowest surrogate
        "\xED\xBF\xBF",      // highest surrogate
        "\xF4\x90\x80\x80",  // above U+10FFFF
        "\xF5\x80\x80\x80",  // a lead that nothing needs
        "\xFF",              //
        "\xFE",              //
        "\xC3",              // cut after one byte
        "\xE2\x82",          // cut after two bytes
        "\xF0\x9F\x98",      // cut after three bytes
        "\xC3z",             // a lead followed by something else
        "\xE2\x82z",         //
        "\xF0\x9F\x98z",     //
        "good\xE2\x28\xA1",  //
    };
    for (const char* text : malformed) {
        EXPECT_EQ(Create(text), nullptr) << testing::PrintToString(std::string(text));
    }
}

TEST(CFString, Create_WithAnotherEncoding_GivesNull) {
    constexpr CFStringEncoding kMacRoman = 0;
    EXPECT_EQ(CFStringCreateWithCString(kCFAllocatorDefault, "text", kMacRoman), nullptr);
}

TEST(CFString, Create_CopiesItsText) {
    char text[] = "before";
    const Owned<CFStringRef> string = Create(text);
    std::strcpy(text, "after!");
    EXPECT_EQ(TextOf(string), "before");
}

TEST(CFString, GetLength_CountsUTF16Units) {
    EXPECT_EQ(CFStringGetLength(MakeString("")), 0);
    EXPECT_EQ(CFStringGetLength(MakeString("abc")), 3);
    EXPECT_EQ(CFStringGetLength(MakeString("Z\xC3\xBCrich")), 6);
    EXPECT_EQ(CFStringGetLength(MakeString("\xE2\x82\xAC")), 1);
    EXPECT_EQ(CFStringGetLength(MakeString("\xEF\xBF\xBF")), 1);
    EXPECT_EQ(CFStringGetLength(MakeString("\xF0\x9F\x98\x80")), 2);
    EXPECT_EQ(CFStringGetLength(MakeString("a\xF0\x9F\x98\x80z")), 4);
}

TEST(CFString, GetCString_IntoABufferThatJustFits_Succeeds) {
    const Owned<CFStringRef> string = MakeString("caf\xC3\xA9");
    char buffer[7] = "######";
    EXPECT_EQ(CFStringGetCString(string, buffer, 6, kCFStringEncodingUTF8), 1);
    EXPECT_STREQ(buffer, "caf\xC3\xA9");
    EXPECT_EQ(buffer[6], '\0');
}

TEST(CFString, GetCString_IntoABufferOneTooSmall_FailsAndLeavesIt) {
    const Owned<CFStringRef> string = MakeString("caf\xC3\xA9");
    char buffer[7] = "######";
    EXPECT_EQ(CFStringGetCString(string, buffer, 5, kCFStringEncodingUTF8), 0);
    EXPECT_STREQ(buffer, "######");
    EXPECT_EQ(CFStringGetCString(string, buffer, 0, kCFStringEncodingUTF8), 0);
    EXPECT_EQ(CFStringGetCString(string, buffer, -1, kCFStringEncodingUTF8), 0);
    EXPECT_STREQ(buffer, "######");
}

TEST(CFString, GetCString_OfTheEmptyString_NeedsOneByte) {
    const Owned<CFStringRef> string = MakeString("");
    char buffer[] = "#";
    EXPECT_EQ(CFStringGetCString(string, buffer, 1, kCFStringEncodingUTF8), 1);
    EXPECT_EQ(buffer[0], '\0');
    EXPECT_EQ(CFStringGetCString(string, buffer, 0, kCFStringEncodingUTF8), 0);
}

TEST(CFString, GetCString_OfALiteral_IsClosedByANulByte) {
    char buffer[] = "#########";
    EXPECT_EQ(CFStringGetCString(CFSTR("four"), buffer, 5, kCFStringEncodingUTF8), 1);
    EXPECT_STREQ(buffer, "four");
    EXPECT_EQ(buffer[5], '#');
}

TEST(CFString, GetCString_InAnotherEncoding_Fails) {
    constexpr CFStringEncoding kUTF16 = 0x0100;
    char buffer[16] = "#";
    EXPECT_EQ(CFStringGetCString(CFSTR("text"), buffer, sizeof buffer, kUTF16), 0);
    EXPECT_STREQ(buffer, "#");
}

TEST(CFString, QuotesAndBackslashes_StayAsTheyAre) {
    constexpr const char* kText = "say \"hi\" \\ 'there'\t|\n";
    EXPECT_EQ(TextOf(MakeString(kText)), kText);
    EXPECT_EQ(TextOf(CFSTR("say \"hi\" \\ 'there'\t|\n")), kText);
}

TEST(CFString, Compare_OrdersByContent) {
    EXPECT_EQ(Compare("", ""), kCFCompareEqualTo);
    EXPECT_EQ(Compare("SystemUIServer", "SystemUIServer"), kCFCompareEqualTo);
    EXPECT_EQ(Compare("", "a"), kCFCompareLessThan);
    EXPECT_EQ(Compare("a", ""), kCFCompareGreaterThan);
    EXPECT_EQ(Compare("abc", "abd"), kCFCompareLessThan);
    EXPECT_EQ(Compare("ab", "abc"), kCFCompareLessThan);
    EXPECT_EQ(Compare("abc", "ab"), kCFCompareGreaterThan);
    EXPECT_EQ(Compare("B", "a"), kCFCompareLessThan);
    EXPECT_EQ(Compare("z", "\xC3\xA4"), kCFCompareLessThan);
    EXPECT_EQ(Compare("SystemUIServer", "systemuiserver"), kCFCompareLessThan);
}

TEST(CFString, Compare_OrdersByUTF16Units_NotByCode) {
    constexpr const char* kEmoji = "\xF0\x9F\x98\x80";        // U+1F600: units D83D DE00
    constexpr const char* kReplacement = "\xEF\xBF\xBD";      // U+FFFD
    constexpr const char* kPrivate = "\xEE\x80\x80";          // U+E000
    constexpr const char* kBelowSurrogates = "\xED\x9F\xBF";  // U+D7FF
    EXPECT_EQ(Compare(kEmoji, kReplacement), kCFCompareLessThan);
    EXPECT_EQ(Compare(kReplacement, kEmoji), kCFCompareGreaterThan);
    EXPECT_EQ(Compare(kEmoji, kPrivate), kCFCompareLessThan);
    EXPECT_EQ(Compare(kPrivate, kReplacement), kCFCompareLessThan);
    EXPECT_EQ(Compare(kBelowSurrogates, kEmoji), kCFCompareLessThan);
    EXPECT_EQ(Compare(kBelowSurrogates, kPrivate), kCFCompareLessThan);
}

TEST(CFString, Compare_KeepsComposedAndDecomposedFormsApart) {
    EXPECT_NE(Compare("\xC3\xA9", "e\xCC\x81"), kCFCompareEqualTo);
}

TEST(CFString, EqualStrings_HaveEqualHashes) {
    const Owned<CFStringRef> one = MakeString("com.example.App");
    const Owned<CFStringRef> other = MakeString("com.example.App");
    ASSERT_NE(static_cast<CFStringRef>(one), static_cast<CFStringRef>(other));
    EXPECT_TRUE(CFEqual(one, other));
    EXPECT_EQ(CFHash(one), CFHash(other));
    EXPECT_TRUE(CFEqual(one, CFSTR("com.example.App")));
    EXPECT_EQ(CFHash(one), CFHash(CFSTR("com.example.App")));
    EXPECT_FALSE(CFEqual(one, MakeString("com.example.app")));
    EXPECT_FALSE(CFEqual(one, MakeString("com.example.Ap")));
}

CFStringRef SameLiteralElsewhere() {
    return CFSTR("the same literal");
}

TEST(CFString, Literals_OfTheSameText_AreOneObject) {
    EXPECT_EQ(CFSTR("the same literal"), SameLiteralElsewhere());
    EXPECT_EQ(CFSTR("the same "
                    "literal"),
              SameLiteralElsewhere());
    EXPECT_NE(CFSTR("another literal"), SameLiteralElsewhere());
}

TEST(CFString, Literals_MayHoldCharactersOutsideAscii) {
    EXPECT_EQ(CFStringGetLength(CFSTR("\xF0\x9F\x98\x80")), 2);
    EXPECT_EQ(TextOf(CFSTR("Z\xC3\xBCrich")), "Z\xC3\xBCrich");
}

frameworks::Immortal<__CFString> constantObject("kConstantOfATest");

TEST(CFString, Constants_BehaveLikeOtherStrings) {
    const CFStringRef constant = constantObject.Get();
    EXPECT_EQ(TextOf(constant), "kConstantOfATest");
    EXPECT_EQ(CFStringGetLength(constant), 16);
    EXPECT_TRUE(CFEqual(constant, CFSTR("kConstantOfATest")));
    CFRelease(constant);
    EXPECT_EQ(TextOf(constant), "kConstantOfATest");
}

TEST(CFString, Make_KeepsEmbeddedNulBytes) {
    const auto string = __CFString::Make(std::string_view("a\0b", 3));
    EXPECT_EQ(CFStringGetLength(string.Get()), 3);
    EXPECT_FALSE(CFEqual(string.Get(), CFSTR("a")));
    char buffer[4] = {'#', '#', '#', '#'};
    ASSERT_EQ(CFStringGetCString(string.Get(), buffer, 4, kCFStringEncodingUTF8), 1);
    EXPECT_EQ(std::string_view(buffer, 4), std::string_view("a\0b\0", 4));
}

TEST(CFString, Make_OfACutCharacter_GivesNothing_WhateverFollowsInMemory) {
    for (const std::string_view character : {"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"}) {
        EXPECT_TRUE(__CFString::Make(character));
        for (std::size_t size = 1; size < character.size(); ++size) {
            EXPECT_FALSE(__CFString::Make(character.substr(0, size)));
        }
    }
}

TEST(CFStringDeathTest, Compare_WithOptions_Stops) {
    constexpr CFStringCompareFlags kCaseInsensitive = 1;
    EXPECT_DEATH(CFStringCompare(CFSTR("a"), CFSTR("A"), kCaseInsensitive),
                 "CFStringCompare: no option but 0");
}

TEST(CFStringDeathTest, NullArguments_StopWithTheNameOfTheCall) {
    EXPECT_DEATH(Create(nullptr), "CFStringCreateWithCString: the C string is null");
    EXPECT_DEATH(CFStringGetCString(CFSTR("a"), nullptr, 8, kCFStringEncodingUTF8),
                 "CFStringGetCString: the buffer is null");
    EXPECT_DEATH(CFStringCompare(CFSTR("a"), nullptr, 0),
                 "CFStringCompare: expected a CFString, got a null reference");
    EXPECT_DEATH(CFStringGetCString(nullptr, nullptr, 0, kCFStringEncodingUTF8),
                 "CFStringGetCString: expected a CFString, got a null reference");
}

TEST(CFStringDeathTest, AMalformedLiteral_Stops) {
    EXPECT_DEATH(CFSTR("\xC0\x80"), "CFSTR: the literal is not well-formed UTF-8");
}

}  // namespace
