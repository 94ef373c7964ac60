// Texts are converted and searched a block at a time: what is not ASCII, or is looked for, has to
// be found wherever it stands.
#include "core/ASCII.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/ConvertUTF.h"
#include "core/Helpers.h"

namespace {

// More than three blocks.
constexpr std::size_t kLength = 200;

std::wstring With(wchar_t unit, std::size_t at) {
    std::wstring text;
    for (std::size_t i = 0; i < kLength; ++i) {
        text.push_back(static_cast<wchar_t>(L'a' + i % 26));
    }
    text[at] = unit;
    return text;
}

TEST(ASCII, IsToldApart_WhereverTheOtherByteStands) {
    for (std::size_t length = 0; length < kLength; ++length) {
        EXPECT_TRUE(IsASCII(std::string(length, '\x7F'))) << length;
    }
    for (std::size_t at = 0; at < kLength; ++at) {
        std::string text(kLength, 'x');
        text[at] = '\x80';
        EXPECT_FALSE(IsASCII(text)) << at;
        EXPECT_FALSE(IsASCII(text.substr(0, at + 1))) << at;
        EXPECT_TRUE(IsASCII(text.substr(at + 1))) << at;
    }
}

TEST(LongTexts, SurviveTheWayToUtf8AndBack_WhereverTheOtherCharacterStands) {
    for (const wchar_t unit : {L'\x7F', L'\x80', L'\u20AC', L'\U0010FFFF'}) {
        for (std::size_t at = 0; at < kLength; ++at) {
            const std::wstring text = With(unit, at);
            std::string utf8;
            ASSERT_TRUE(ConvertUTF32toUTF8(text, utf8));
            EXPECT_EQ(IsASCII(utf8), unit == L'\x7F');
            std::wstring back(utf8.size(), L'\0');
            std::size_t count = 0;
            ASSERT_TRUE(ConvertUTF8toUTF32(utf8, &back[0], count));
            EXPECT_EQ(back.substr(0, count), text) << at;
        }
    }
}

TEST(LongTexts, WithWhatIsNoCharacter_AreRefused_WhereverItStands) {
    for (std::size_t at = 0; at < kLength; ++at) {
        for (const long value : {0xD800L, 0x110000L, -1L}) {
            std::string utf8;
            EXPECT_FALSE(ConvertUTF32toUTF8(With(static_cast<wchar_t>(value), at), utf8)) << at;
        }
        std::string broken(kLength, 'x');
        broken[at] = '\xFF';
        EXPECT_EQ(Helpers::wstringFromUtf8(broken), L"Utf8 conversion failed") << at;
    }
}

TEST(LongTexts, AreNarrowedWithQuestionMarks_WhereverTheOtherCharacterStands) {
    for (std::size_t at = 0; at < kLength; ++at) {
        const std::wstring marked = With(L'?', at);
        const std::string expected(marked.begin(), marked.end());
        for (const long value : {0x80L, 0x100L, 0x10FFFFL, -1L}) {
            EXPECT_EQ(Helpers::wstringToString(With(static_cast<wchar_t>(value), at)), expected);
        }
        std::string bytes = expected;
        bytes[at] = '\xE9';
        EXPECT_EQ(Helpers::stringToWString(bytes), With(L'\xE9', at));
    }
}

TEST(LongTexts, AreCutIntoMessages_WhereverABarOrALineFeedStands) {
    for (std::size_t at = 0; at < kLength; ++at) {
        const auto with = [at](char unit) {
            std::string text(kLength, 'x');
            text[at] = unit;
            return text;
        };
        std::string pending;
        const std::string text = with('|');
        EXPECT_EQ(Helpers::splitIntoCommands(&pending, text),
                  std::vector<std::string>{text.substr(0, at)});
        EXPECT_EQ(pending, text.substr(at + 1));
        for (const char dropped : {'\n', '\r', '\0'}) {
            pending.clear();
            EXPECT_TRUE(Helpers::splitIntoCommands(&pending, with(dropped)).empty());
            EXPECT_EQ(pending, text.substr(0, at) + text.substr(at + 1));
        }
    }
}

TEST(LongTexts, AreSplitIntoWords_WhereverABlankOrAQuoteStands) {
    for (std::size_t at = 0; at < kLength; ++at) {
        const std::wstring text = With(L' ', at);
        std::vector<std::wstring> words = {text.substr(0, at)};
        if (at + 1 < kLength) {
            words.push_back(text.substr(at + 1));
        }
        EXPECT_EQ(Helpers::splitCommand(text), words) << at;
        for (const wchar_t quote : {L'"', L'\''}) {
            // Between it and the end everything is one word.
            const std::wstring other(1, quote == L'"' ? L'\'' : L'"');
            EXPECT_EQ(
                Helpers::splitCommand(With(quote, at) + L" x" + other),
                std::vector<std::wstring>{text.substr(0, at) + text.substr(at + 1) + L" x" + other})
                << at;
        }
    }
}

}  // namespace
