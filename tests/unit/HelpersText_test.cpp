#include <Carbon/Carbon.h>
#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>

#include <climits>
#include <cwchar>
#include <random>
#include <string>
#include <vector>

#include "core/Helpers.h"
#include "core/Owners.h"

namespace {

std::wstring Nuls(std::size_t count) {
    return std::wstring(count, L'\0');
}

CFOwner<CFStringRef> CFStringOf(const std::string& text) {
    return CFOwner<CFStringRef>::Adopt(
        CFStringCreateWithCString(kCFAllocatorDefault, text.c_str(), kCFStringEncodingUTF8));
}

// What copy_CFStringRefToCString makes of TEXT; "<null>" for null.
std::string Copied(const std::string& text) {
    char* const copy = Helpers::copy_CFStringRefToCString(CFStringOf(text).Get());
    if (copy == nullptr) {
        return "<null>";
    }
    const std::string result = copy;
    DisposePtr(copy);
    return result;
}

TEST(WstringFromUtf8, HasOneUnitMoreThanThereAreBytes) {
    EXPECT_EQ(L"abc" + Nuls(1), Helpers::wstringFromUtf8("abc"));
    EXPECT_EQ(L"\u00E9" + Nuls(2), Helpers::wstringFromUtf8("\xC3\xA9"));
    EXPECT_EQ(L"\u20AC" + Nuls(3), Helpers::wstringFromUtf8("\xE2\x82\xAC"));
    EXPECT_EQ(L"\U0001F58A" + Nuls(4), Helpers::wstringFromUtf8("\xF0\x9F\x96\x8A"));
    for (std::size_t length = 0; length < 600; ++length) {
        ASSERT_EQ(length + 1, Helpers::wstringFromUtf8(std::string(length, 'x')).size());
    }
}

TEST(WstringFromUtf8, OfTheEmptyString_IsOneNulUnit) {
    EXPECT_EQ(Nuls(1), Helpers::wstringFromUtf8(""));
}

TEST(WstringFromUtf8, OfTheLoneByteC0_IsTheFailureText) {
    EXPECT_EQ(L"Utf8 conversion failed", Helpers::wstringFromUtf8("\xC0"));
}

TEST(WstringFromUtf8, OfAnyFault_IsTheFailureTextAlone) {
    for (const char* const broken :
         {"abc\xFF", "\xE2\x82", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xC3\xA9\x80 and more"}) {
        EXPECT_EQ(L"Utf8 conversion failed", Helpers::wstringFromUtf8(broken));
    }
}

TEST(WstringFromUtf8, KeepsNulsInside) {
    EXPECT_EQ(std::wstring(L"a\0b\0", 4), Helpers::wstringFromUtf8(std::string("a\0b", 3)));
}

TEST(WstringToUtf8, OfTheEmptyText_IsOneNulByte) {
    EXPECT_EQ(std::string(1, '\0'), Helpers::wstringToUtf8(L""));
}

TEST(WstringToUtf8, HasTheBytesProducedAndNoMore) {
    EXPECT_EQ("abc", Helpers::wstringToUtf8(L"abc"));
    EXPECT_EQ("\xC3\xA9\xE2\x82\xAC\xF0\x9F\x96\x8A",
              Helpers::wstringToUtf8(L"\u00E9\u20AC\U0001F58A"));
    EXPECT_EQ(std::string("a\0b", 3), Helpers::wstringToUtf8(std::wstring(L"a\0b", 3)));
    EXPECT_EQ(std::string(1, '\0'), Helpers::wstringToUtf8(Nuls(1)));
}

TEST(WstringToUtf8, OfNoCharacter_IsTheTextError) {
    for (const unsigned value : {0xD800u, 0xDFFFu, 0x110000u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        EXPECT_EQ("Error",
                  Helpers::wstringToUtf8(std::wstring(L"good ") + static_cast<wchar_t>(value)))
            << value;
    }
}

TEST(StringToWString, WidensEachByteToTheCharacterOfItsNumber) {
    for (int byte = 0; byte <= 0xFF; ++byte) {
        EXPECT_EQ(std::wstring(1, static_cast<wchar_t>(byte)),
                  Helpers::stringToWString(std::string(1, static_cast<char>(byte))));
    }
    EXPECT_EQ(L"", Helpers::stringToWString(""));
}

TEST(StringToWString, DecodesNothing) {
    EXPECT_EQ(L"\u00C3\u00A9", Helpers::stringToWString("\xC3\xA9"));
}

TEST(WstringToString, NarrowsAsciiAndMakesQuestionMarksOfTheRest) {
    for (int value = 0; value <= 0x7F; ++value) {
        EXPECT_EQ(std::string(1, static_cast<char>(value)),
                  Helpers::wstringToString(std::wstring(1, static_cast<wchar_t>(value))));
    }
    for (int value = 0x80; value <= 0x3000; ++value) {
        ASSERT_EQ("?", Helpers::wstringToString(std::wstring(1, static_cast<wchar_t>(value))))
            << value;
    }
    for (const unsigned value : {0xD800u, 0x1F58Au, 0x110000u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        EXPECT_EQ("?", Helpers::wstringToString(std::wstring(1, static_cast<wchar_t>(value))));
    }
    EXPECT_EQ("caf?", Helpers::wstringToString(L"caf\u00E9"));
    EXPECT_EQ("", Helpers::wstringToString(L""));
}

TEST(WstringToCFString, IsTheSameText) {
    const auto made = CFOwner<CFStringRef>::Adopt(Helpers::wstringToCFString(L"\u00E9t\u00E9"));
    EXPECT_TRUE(CFEqual(made.Get(), CFStringOf("\xC3\xA9t\xC3\xA9").Get()));
    const auto empty = CFOwner<CFStringRef>::Adopt(Helpers::wstringToCFString(L""));
    EXPECT_TRUE(CFEqual(empty.Get(), CFSTR("")));
}

TEST(WstringToCFString, OfNoCharacters_CarriesTheTextError) {
    const auto made = CFOwner<CFStringRef>::Adopt(
        Helpers::wstringToCFString(std::wstring(1, static_cast<wchar_t>(0xD800))));
    ASSERT_TRUE(made);
    EXPECT_TRUE(CFEqual(made.Get(), CFSTR("Error")));
}

TEST(CopyCFStringRefToCString, OfNull_IsNull) {
    EXPECT_EQ(nullptr, Helpers::copy_CFStringRefToCString(nullptr));
}

TEST(CopyCFStringRefToCString, IsTheUtf8Form) {
    EXPECT_EQ("", Copied(""));
    EXPECT_EQ("SystemUIServer", Copied("SystemUIServer"));
    EXPECT_EQ("\xC3\xA9\xC3\xA9\xC3\xA9", Copied("\xC3\xA9\xC3\xA9\xC3\xA9"));
}

TEST(CopyCFStringRefToCString, HasRoomForTwoBytesACharacterAndOneNul) {
    // One unit of UTF-16 and three bytes: too long alone, not beside an ASCII character.
    EXPECT_EQ("<null>", Copied("\xE2\x82\xAC"));
    EXPECT_EQ("a\xE2\x82\xAC", Copied("a\xE2\x82\xAC"));
    // Two units and four bytes.
    EXPECT_EQ("\xF0\x9F\x96\x8A", Copied("\xF0\x9F\x96\x8A"));
    EXPECT_EQ("<null>", Copied("\xF0\x9F\x96\x8A\xE2\x82\xAC"));
}

TEST(IntToString, IsDecimal) {
    EXPECT_EQ("0", Helpers::intToString(0));
    EXPECT_EQ("-43", Helpers::intToString(-43));
    EXPECT_EQ("2147483647", Helpers::intToString(INT_MAX));
    EXPECT_EQ("-2147483648", Helpers::intToString(INT_MIN));
    EXPECT_EQ(L"0", Helpers::intToWString(0));
    EXPECT_EQ(L"15", Helpers::intToWString(15));
    EXPECT_EQ(L"-2147483648", Helpers::intToWString(INT_MIN));
}

TEST(IsNullOrEmpty, OfThreeBlanks_IsTrue) {
    EXPECT_TRUE(Helpers::isNullOrEmpty(L"   "));
}

TEST(IsNullOrEmpty, OfABlankFollowedByX_IsFalse) {
    EXPECT_FALSE(Helpers::isNullOrEmpty(L" x"));
}

TEST(IsNullOrEmpty, LooksNoFurtherThanANul) {
    EXPECT_TRUE(Helpers::isNullOrEmpty(L""));
    EXPECT_TRUE(Helpers::isNullOrEmpty(Nuls(1)));
    EXPECT_TRUE(Helpers::isNullOrEmpty(L"  " + Nuls(1) + L"x"));
    EXPECT_TRUE(Helpers::isNullOrEmpty(Nuls(3) + L"x"));
    EXPECT_FALSE(Helpers::isNullOrEmpty(L"x" + Nuls(1)));
}

TEST(IsNullOrEmpty, TakesNoOtherSpaceForABlank) {
    EXPECT_FALSE(Helpers::isNullOrEmpty(L"\t"));
    EXPECT_FALSE(Helpers::isNullOrEmpty(L" \n"));
    EXPECT_FALSE(Helpers::isNullOrEmpty(L"\u00A0"));
}

TEST(StrPrefix, TellsWhetherATextBeginsWithAnother) {
    EXPECT_TRUE(Helpers::str_prefix(L"exit", L"exit"));
    EXPECT_TRUE(Helpers::str_prefix(L"exit", L"exitNow"));
    EXPECT_TRUE(Helpers::str_prefix(L"", L""));
    EXPECT_TRUE(Helpers::str_prefix(L"", L"exit"));
    EXPECT_FALSE(Helpers::str_prefix(L"exit", L"exi"));
    EXPECT_FALSE(Helpers::str_prefix(L"exit", L"Exit"));
    EXPECT_FALSE(Helpers::str_prefix(L"exit", L" exit"));
    EXPECT_TRUE(Helpers::str_prefix("exit", L"exitNow"));
    EXPECT_FALSE(Helpers::str_prefix("exit", L"ex"));
    EXPECT_TRUE(Helpers::str_prefix("", L""));
}

TEST(StrPrefix, OfBytes_WidensThem) {
    EXPECT_TRUE(Helpers::str_prefix("\xE9t\xE9", L"\u00E9t\u00E9 indien"));
    EXPECT_FALSE(Helpers::str_prefix("\xC3\xA9", L"\u00E9"));
}

TEST(StrPrefix, WithANulInside_StopsThere) {
    EXPECT_TRUE(Helpers::str_prefix(std::wstring(L"ab\0x", 4), std::wstring(L"ab\0y", 4)));
    EXPECT_FALSE(Helpers::str_prefix(std::wstring(L"ab\0x", 4), std::wstring(L"abcd", 4)));
    EXPECT_FALSE(Helpers::str_prefix(std::wstring(L"abc", 3), std::wstring(L"ab\0", 3)));
    // Too long is too long, whatever stands behind the NUL.
    EXPECT_FALSE(Helpers::str_prefix(std::wstring(L"ab\0x", 4), std::wstring(L"ab\0", 3)));
}

TEST(StrPrefix, OfRandomTexts_IsWhatWcscmpSays) {
    std::mt19937 random(1);
    const auto text = [&random] {
        std::wstring made(random() % 5, L'a');
        for (wchar_t& unit : made) {
            unit = L"\0ab"[random() % 3];
        }
        return made;
    };
    for (int round = 0; round < 50000; ++round) {
        const std::wstring prefix = text();
        const std::wstring whole = text();
        const bool expected =
            prefix.size() <= whole.size() &&
            std::wcscmp(prefix.c_str(), whole.substr(0, prefix.size()).c_str()) == 0;
        ASSERT_EQ(expected, Helpers::str_prefix(prefix, whole));
    }
}

TEST(Replace, OfEveryAByAa_Ends) {
    EXPECT_EQ("aaaaaa", Helpers::replace("aaa", "a", "aa"));
}

TEST(Replace, GoesFromLeftToRightAndSearchesNothingInserted) {
    EXPECT_EQ("ba", Helpers::replace("aaa", "aa", "b"));
    EXPECT_EQ("xabx", Helpers::replace("xabcx", "abc", "ab"));
    EXPECT_EQ("aab", Helpers::replace("aab", "c", "d"));
    EXPECT_EQ("bc", Helpers::replace("abac", "a", ""));
    EXPECT_EQ("", Helpers::replace("", "a", "b"));
    // "ab" of what is inserted and what follows is no occurrence.
    EXPECT_EQ("ab", Helpers::replace("xb", "x", "a"));
    EXPECT_EQ("acb", Helpers::replace("acb", "ab", "!"));
    EXPECT_EQ("aabb", Helpers::replace("aabb", "abab", "!"));
}

TEST(Replace, OfNothing_ChangesNothing) {
    EXPECT_EQ("abc", Helpers::replace("abc", "", "x"));
}

TEST(Replace, TakesNulsForBytesLikeAnyOther) {
    EXPECT_EQ(std::string("a\0\0b", 4), Helpers::replace("a-b", "-", std::string("\0\0", 2)));
    EXPECT_EQ("a-b", Helpers::replace(std::string("a\0b", 3), std::string(1, '\0'), "-"));
}

TEST(FixPercentageSign, DoublesEveryOne) {
    EXPECT_EQ("", Helpers::fixPercentageSign(""));
    EXPECT_EQ("100%%", Helpers::fixPercentageSign("100%"));
    EXPECT_EQ("%%%%s", Helpers::fixPercentageSign("%%s"));
}

}  // namespace
