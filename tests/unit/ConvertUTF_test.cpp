#include "core/ConvertUTF.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr std::uint32_t kFirstSurrogate = 0xD800;
constexpr std::uint32_t kLastSurrogate = 0xDFFF;
constexpr std::uint32_t kLastCharacter = 0x10FFFF;

bool IsSurrogate(std::uint32_t value) {
    return value >= kFirstSurrogate && value <= kLastSurrogate;
}

// The definition, taken slowly: a text is well-formed when it is a row of shortest forms of
// characters.
std::string SlowlyEncoded(std::uint32_t value) {
    const auto continuation = [value](int place) {
        return static_cast<char>(0x80 + value / (1u << (6 * place)) % 64);
    };
    if (value <= 0x7F) {
        return {static_cast<char>(value)};
    }
    if (value <= 0x7FF) {
        return {static_cast<char>(0xC0 + value / 64), continuation(0)};
    }
    if (value <= 0xFFFF) {
        return {static_cast<char>(0xE0 + value / 4096), continuation(1), continuation(0)};
    }
    return {static_cast<char>(0xF0 + value / 262144), continuation(2), continuation(1),
            continuation(0)};
}

// What the bits of LENGTH bytes say, whatever the bytes are.
std::uint32_t BitsOf(const std::string& bytes) {
    if (bytes.size() == 1) {
        return static_cast<unsigned char>(bytes[0]);
    }
    std::uint32_t value = static_cast<unsigned char>(bytes[0]) % (1u << (7 - bytes.size()));
    for (std::size_t i = 1; i < bytes.size(); ++i) {
        value = value * 64 + static_cast<unsigned char>(bytes[i]) % 64;
    }
    return value;
}

struct Decoded {
    bool isWellFormed = true;
    // Those before the fault.
    std::vector<std::uint32_t> characters;
};

bool operator==(const Decoded& left, const Decoded& right) {
    return left.isWellFormed == right.isWellFormed && left.characters == right.characters;
}

Decoded SlowlyDecoded(const std::string& bytes) {
    Decoded decoded;
    for (std::size_t at = 0; at < bytes.size();) {
        std::size_t length = 0;
        for (std::size_t tried = 1; tried <= 4 && at + tried <= bytes.size(); ++tried) {
            const std::string part = bytes.substr(at, tried);
            const std::uint32_t value = BitsOf(part);
            if (value <= kLastCharacter && !IsSurrogate(value) && SlowlyEncoded(value) == part) {
                decoded.characters.push_back(value);
                length = tried;
                break;
            }
        }
        if (length == 0) {
            decoded.isWellFormed = false;
            return decoded;
        }
        at += length;
    }
    return decoded;
}

Decoded Decode(const std::string& bytes) {
    std::wstring target(bytes.size(), L'#');
    std::size_t count = 0;
    Decoded decoded;
    decoded.isWellFormed = ConvertUTF8toUTF32(bytes, target.data(), count);
    for (std::size_t i = 0; i < count; ++i) {
        decoded.characters.push_back(static_cast<std::uint32_t>(target[i]));
    }
    return decoded;
}

bool Encode(std::uint32_t value, std::string& bytes) {
    return ConvertUTF32toUTF8(std::wstring(1, static_cast<wchar_t>(value)), bytes);
}

std::string InHex(const std::string& bytes) {
    std::string text;
    for (const char byte : bytes) {
        constexpr char kDigits[] = "0123456789ABCDEF";
        text += kDigits[static_cast<unsigned char>(byte) / 16];
        text += kDigits[static_cast<unsigned char>(byte) % 16];
        text += ' ';
    }
    return text;
}

// One comparison that costs no assertion unless it fails: there are millions of them.
#define EXPECT_AS_SLOWLY(bytes)                                                        \
    do {                                                                               \
        const std::string theBytes = (bytes);                                          \
        if (!(Decode(theBytes) == SlowlyDecoded(theBytes))) {                          \
            ADD_FAILURE() << InHex(theBytes) << "is decoded otherwise than it should"; \
            return;                                                                    \
        }                                                                              \
    } while (false)

std::string Bytes(std::initializer_list<int> values) {
    std::string bytes;
    for (const int value : values) {
        bytes.push_back(static_cast<char>(value));
    }
    return bytes;
}

TEST(ConvertUTF, EveryCharacter_IsEncodedAndDecodedBack) {
    for (std::uint32_t value = 0; value <= kLastCharacter; ++value) {
        if (IsSurrogate(value)) {
            continue;
        }
        std::string bytes;
        if (!Encode(value, bytes) || bytes != SlowlyEncoded(value)) {
            FAIL() << "U+" << std::hex << value << " becomes " << InHex(bytes);
        }
        const Decoded decoded = Decode(bytes);
        if (!decoded.isWellFormed || decoded.characters != std::vector<std::uint32_t>{value}) {
            FAIL() << "U+" << std::hex << value << " does not come back";
        }
    }
}

TEST(ConvertUTF, EverySurrogate_IsRefusedInBothDirections) {
    for (std::uint32_t value = kFirstSurrogate; value <= kLastSurrogate; ++value) {
        std::string ignored;
        EXPECT_FALSE(Encode(value, ignored)) << value;
        EXPECT_FALSE(Decode(SlowlyEncoded(value)).isWellFormed) << value;
    }
}

TEST(ConvertUTF, APairOfSurrogates_IsNoCharacterInEitherDirection) {
    std::string ignored;
    const std::wstring pair = {static_cast<wchar_t>(0xD83D), static_cast<wchar_t>(0xDE00)};
    EXPECT_FALSE(ConvertUTF32toUTF8(pair, ignored));
    EXPECT_FALSE(Decode(Bytes({0xED, 0xA0, 0xBD, 0xED, 0xB8, 0x80})).isWellFormed);
}

TEST(ConvertUTF, ValuesAboveTheLastCharacter_AreRefusedInBothDirections) {
    for (const std::uint32_t value :
         {0x110000u, 0x1FFFFFu, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        std::string ignored;
        EXPECT_FALSE(Encode(value, ignored)) << value;
    }
    EXPECT_TRUE(Decode(Bytes({0xF4, 0x8F, 0xBF, 0xBF})).isWellFormed);
    EXPECT_FALSE(Decode(Bytes({0xF4, 0x90, 0x80, 0x80})).isWellFormed);
    for (int first = 0xF5; first <= 0xFF; ++first) {
        EXPECT_FALSE(Decode(Bytes({first, 0x80, 0x80, 0x80})).isWellFormed) << first;
    }
    EXPECT_FALSE(Decode(Bytes({0xF8, 0x88, 0x80, 0x80, 0x80})).isWellFormed);
    EXPECT_FALSE(Decode(Bytes({0xFC, 0x84, 0x80, 0x80, 0x80, 0x80})).isWellFormed);
}

TEST(ConvertUTF, OverlongForms_AreRefused) {
    // Two, three and four bytes for what fits into fewer.
    for (std::uint32_t value = 0; value <= 0x7F; ++value) {
        const auto last = static_cast<int>(0x80 + value % 64);
        EXPECT_FALSE(Decode(Bytes({static_cast<int>(0xC0 + value / 64), last})).isWellFormed);
    }
    for (std::uint32_t value = 0; value <= 0x7FF; ++value) {
        const auto middle = static_cast<int>(0x80 + value / 64);
        const auto last = static_cast<int>(0x80 + value % 64);
        EXPECT_FALSE(Decode(Bytes({0xE0, middle, last})).isWellFormed) << value;
        EXPECT_FALSE(Decode(Bytes({0xF0, 0x80, middle, last})).isWellFormed) << value;
    }
    EXPECT_FALSE(Decode(Bytes({0xF0, 0x8F, 0xBF, 0xBF})).isWellFormed);
    EXPECT_TRUE(Decode(Bytes({0xF0, 0x90, 0x80, 0x80})).isWellFormed);
}

TEST(ConvertUTF, NonCharactersOfUnicode_AreCharactersHere) {
    for (const std::uint32_t value : {0xFDD0u, 0xFFFEu, 0xFFFFu, 0x1FFFEu, 0x10FFFFu}) {
        std::string bytes;
        EXPECT_TRUE(Encode(value, bytes)) << value;
        EXPECT_TRUE(Decode(bytes).isWellFormed) << value;
    }
}

TEST(ConvertUTF, WhatIsWellFormed_IsKnownWithoutDecoding) {
    for (int first = 0; first <= 0xFF; ++first) {
        for (int second = 0; second <= 0xFF; ++second) {
            for (const int third : {0x41, 0x80, 0xBF}) {
                const std::string bytes = Bytes({first, second, third});
                ASSERT_EQ(Decode(bytes).isWellFormed, IsUTF8(bytes))
                    << first << ", " << second << ", " << third;
            }
        }
    }
    for (const std::size_t before : {63u, 64u, 65u, 2047u, 2048u, 2112u, 3000u}) {
        for (const std::string end :
             {"", "x", "\xC3", "\xC3\xA9", "\xFF", "\xE2\x82", "\xE2\x82\xAC"}) {
            const std::string bytes = std::string(before, 'x') + end;
            ASSERT_EQ(Decode(bytes).isWellFormed, IsUTF8(bytes)) << before << ", " << end;
        }
    }
}

TEST(ConvertUTF, UTF32FromUTF8_EndsAtTheFirstFault) {
    EXPECT_EQ(L"", UTF32FromUTF8(""));
    EXPECT_EQ(L"a\u00E9\U0001F58A", UTF32FromUTF8(u8"a\u00E9\U0001F58A"));
    EXPECT_EQ(L"ab", UTF32FromUTF8("ab\xC3(c"));
    EXPECT_EQ(std::wstring(L"a\0b", 3), UTF32FromUTF8(std::string("a\0b", 3)));
}

TEST(ConvertUTF, EveryRowOfOneOrTwoBytes_IsDecodedAsDefined) {
    for (int first = 0; first <= 0xFF; ++first) {
        EXPECT_AS_SLOWLY(Bytes({first}));
        for (int second = 0; second <= 0xFF; ++second) {
            EXPECT_AS_SLOWLY(Bytes({first, second}));
        }
    }
}

TEST(ConvertUTF, EveryThreeBytesBehindALeadOfThree_AreDecodedAsDefined) {
    for (int first = 0xE0; first <= 0xEF; ++first) {
        for (int second = 0; second <= 0xFF; ++second) {
            // The last byte has one range only: its ends and what is next to them.
            for (const int third : {0x00, 0x41, 0x7F, 0x80, 0x81, 0xA0, 0xBF, 0xC0, 0xE2, 0xFF}) {
                EXPECT_AS_SLOWLY(Bytes({first, second, third}));
            }
        }
    }
}

TEST(ConvertUTF, EveryFourBytesBehindALeadOfFour_AreDecodedAsDefined) {
    constexpr int kEnds[] = {0x00, 0x7F, 0x80, 0x8F, 0x90, 0xBF, 0xC0, 0xFF};
    for (int first = 0xF0; first <= 0xFF; ++first) {
        for (int second = 0; second <= 0xFF; ++second) {
            for (const int third : kEnds) {
                for (const int fourth : kEnds) {
                    EXPECT_AS_SLOWLY(Bytes({first, second, third, fourth}));
                }
            }
        }
    }
}

TEST(ConvertUTF, RandomRowsOfPieces_AreDecodedAsDefined) {
    // Mostly characters, so that the fault, if there is one, comes late.
    std::mt19937 random(20071026);
    const auto below = [&random](std::uint32_t limit) {
        return std::uniform_int_distribution<std::uint32_t>(0, limit - 1)(random);
    };
    for (int round = 0; round < 30000; ++round) {
        std::string bytes;
        for (std::uint32_t piece = 0, pieces = below(12); piece < pieces; ++piece) {
            const std::uint32_t bits = below(21) + 1;
            std::string part = SlowlyEncoded(below(1u << bits));
            if (below(16) == 0) {
                part[below(static_cast<std::uint32_t>(part.size()))] =
                    static_cast<char>(below(256));
            }
            if (below(16) == 0) {
                part.pop_back();
            }
            bytes += part;
        }
        EXPECT_AS_SLOWLY(bytes);
    }
}

TEST(ConvertUTF, ATextCutAnywhere_IsWellFormedOnlyBetweenCharacters) {
    const std::string text = u8"a\u00E9\u20AC\U0001F58A";
    const std::vector<bool> isBetween = {true, true,  false, true,  false, false,
                                         true, false, false, false, true};
    for (std::size_t length = 0; length <= text.size(); ++length) {
        EXPECT_EQ(isBetween[length], Decode(text.substr(0, length)).isWellFormed) << length;
    }
}

TEST(ConvertUTF, AFault_LeavesTheCharactersBeforeIt) {
    std::wstring target(4, L'#');
    std::size_t count = 99;
    EXPECT_FALSE(ConvertUTF8toUTF32("ab\xC0", target.data(), count));
    EXPECT_EQ(2u, count);
    EXPECT_EQ(L"ab##", target);
}

TEST(ConvertUTF, ANul_IsACharacterLikeAnyOther) {
    EXPECT_EQ((std::vector<std::uint32_t>{'a', 0, 'b'}), Decode(std::string("a\0b", 3)).characters);
    std::string bytes;
    EXPECT_TRUE(ConvertUTF32toUTF8(std::wstring(L"a\0b", 3), bytes));
    EXPECT_EQ(std::string("a\0b", 3), bytes);
}

TEST(ConvertUTF, Encoding_AppendsToWhatIsThere) {
    std::string bytes = "key=";
    EXPECT_TRUE(ConvertUTF32toUTF8(L"\u00E9", bytes));
    EXPECT_EQ("key=\xC3\xA9", bytes);
}

TEST(ConvertUTF, IsLegalUTF8_TakesExactlyOneSequence) {
    const auto isLegal = [](const std::string& bytes) {
        return isLegalUTF8(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    };
    EXPECT_FALSE(isLegal(""));
    EXPECT_TRUE(isLegal("a"));
    EXPECT_FALSE(isLegal("ab"));
    EXPECT_TRUE(isLegal("\xC3\xA9"));
    EXPECT_FALSE(isLegal("\xC3"));
    EXPECT_FALSE(isLegal("\xC3\xA9\xA9"));
    EXPECT_FALSE(isLegal("\x80"));
    EXPECT_FALSE(isLegal("\xC0\x80"));
    EXPECT_TRUE(isLegal("\xF0\x9F\x96\x8A"));
    EXPECT_FALSE(isLegal("\xF8\x88\x80\x80\x80"));
}

TEST(MissingUTF8Bytes, OfACutText_AreThoseBehindTheCut) {
    for (const std::uint32_t value :
         {0x41u, 0xE9u, 0x7FFu, 0x800u, 0x20ACu, 0xFFFFu, 0x10000u, 0x1F58Au, 0x10FFFFu}) {
        const std::string whole = SlowlyEncoded(value);
        for (std::size_t length = 1; length <= whole.size(); ++length) {
            for (const char* const before : {"", "a", u8"\u00E9", u8"\U0001F58A"}) {
                EXPECT_EQ(whole.size() - length, MissingUTF8Bytes(before + whole.substr(0, length)))
                    << std::hex << value << " cut behind byte " << length;
            }
        }
    }
    EXPECT_EQ(0u, MissingUTF8Bytes(""));
}

TEST(MissingUTF8Bytes, OfABrokenEnd_AreNone) {
    // Nothing behind these makes a character of them.
    for (const std::string& broken :
         {Bytes({0x80}), Bytes({0xC0}), Bytes({0xC1}), Bytes({0xF5}), Bytes({0xFF}),
          Bytes({0x80, 0x80, 0x80, 0x80, 0x80}), Bytes({'a', 0x80}), Bytes({0xC3, 0xA9, 0xA9}),
          Bytes({0xE0, 0x80}), Bytes({0xED, 0xA0}), Bytes({0xF0, 0x80}), Bytes({0xF4, 0x90}),
          Bytes({0xF0, 0x80, 0x80})}) {
        EXPECT_EQ(0u, MissingUTF8Bytes(broken)) << InHex(broken);
    }
}

TEST(MissingUTF8Bytes, OnceAdded_MakeAnyBeginningWhole) {
    // Whatever is said to be missing, some bytes of that number complete the text.
    std::mt19937 random(7);
    for (int round = 0; round < 20000; ++round) {
        std::string text;
        for (int i = 0; i < 4; ++i) {
            text.push_back(static_cast<char>(0x80 + random() % 0x80));
        }
        const std::size_t missing = MissingUTF8Bytes(text);
        ASSERT_LE(missing, 3u) << InHex(text);
        if (missing == 0) {
            continue;
        }
        std::size_t start = text.size();
        do {
            --start;
        } while ((static_cast<unsigned char>(text[start]) & 0xC0) == 0x80);
        bool canBeWhole = false;
        for (const int filler : {0x80, 0xBF}) {
            const std::string filled = text.substr(start) + static_cast<char>(filler) +
                                       std::string(missing - 1, static_cast<char>(0x80));
            canBeWhole = canBeWhole || SlowlyDecoded(filled).isWellFormed;
        }
        ASSERT_TRUE(canBeWhole) << InHex(text) << "lacks " << missing;
    }
}

}  // namespace
