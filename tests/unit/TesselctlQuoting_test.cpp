#include "tesselctl/Quoting.h"

#include <gtest/gtest.h>

#include <random>

#include "tesselctl/Utf8.h"

namespace {

using tesselctl::FindInvalidUtf8;
using tesselctl::FirstWord;
using tesselctl::QuoteWords;
using tesselctl::Trouble;
using tesselctl::WhyUnsendable;

using Words = std::vector<std::string>;

// How the service takes a line apart, written from its rules and not from the tool's code.
Words TakeApart(const std::string& line) {
    Words words;
    std::string current;
    bool inside = false;
    char opening = 0;
    for (const char c : line) {
        if (!inside && c == ' ') {
            words.push_back(current);
            current.clear();
        } else if (!inside && (c == '"' || c == '\'')) {
            inside = true;
            opening = c;
        } else if (inside && c == opening) {
            inside = false;
        } else {
            current += c;
        }
    }
    if (!current.empty()) words.push_back(current);
    return words;
}

std::string Quoted(const Words& words) {
    const auto line = QuoteWords(words);
    return line.Ok() ? line.Value() : "<" + line.GetProblem().text + ">";
}

TEST(TesselctlQuoting, ReferenceTokenizer_FollowsTheRulesOfTheService) {
    EXPECT_EQ((Words{"abc de"}), TakeApart("ab\"c d\"e"));
    EXPECT_EQ((Words{"getIcon", "", "/Applications/X.app"}),
              TakeApart("getIcon  /Applications/X.app"));
    EXPECT_EQ((Words{"checkExists", "/Volumes/My Disk/file"}),
              TakeApart("checkExists '/Volumes/My Disk/file'"));
    EXPECT_EQ((Words{"a", "x"}), TakeApart("a x ").size() == 2 ? TakeApart("a x ") : Words{});
    EXPECT_EQ((Words{"a"}), TakeApart("a \"\""));
}

TEST(TesselctlQuoting, PlainWords_StayAsTheyAre) {
    EXPECT_EQ("platform", Quoted({"platform"}));
    EXPECT_EQ("checkExists /tmp/a-b_c.txt", Quoted({"checkExists", "/tmp/a-b_c.txt"}));
    EXPECT_EQ("checkExists \xC3\xA9\ttab", Quoted({"checkExists", "\xC3\xA9\ttab"}));
}

TEST(TesselctlQuoting, AWordWithSpacesOrOneKindOfQuote_IsOneStretch) {
    EXPECT_EQ("checkExists \"/Volumes/My Disk\"", Quoted({"checkExists", "/Volumes/My Disk"}));
    EXPECT_EQ("a \"it's\"", Quoted({"a", "it's"}));
    EXPECT_EQ("a 'say \"x\"'", Quoted({"a", "say \"x\""}));
}

TEST(TesselctlQuoting, AWordWithBothKindsOfQuotes_IsJoinedFromStretches) {
    const Words words = {"a", "it's \"so\" isn't it"};
    EXPECT_EQ(words, TakeApart(Quoted(words)));
    const Words quotesOnly = {"\"'\"'", "''\"\""};
    EXPECT_EQ(quotesOnly, TakeApart(Quoted(quotesOnly)));
}

TEST(TesselctlQuoting, EmptyWords_SurviveInTheMiddleAndAtTheEnd) {
    EXPECT_EQ("installAirApp id \"\" x", Quoted({"installAirApp", "id", "", "x"}));
    EXPECT_EQ("installAirApp id x \"\" ", Quoted({"installAirApp", "id", "x", ""}));
    EXPECT_EQ((Words{"installAirApp", "id", "x", ""}), TakeApart("installAirApp id x \"\" "));
    EXPECT_EQ((Words{""}), TakeApart(Quoted({""})));
    EXPECT_EQ((Words{"", ""}), TakeApart(Quoted({"", ""})));
}

TEST(TesselctlQuoting, WhatTheLanguageCannotSay_IsRefusedWithTheReason) {
    EXPECT_EQ("<argument 1 holds a vertical bar, which ends a command and cannot be sent>",
              Quoted({"a", "x|y"}));
    EXPECT_EQ("<the command holds a vertical bar, which ends a command and cannot be sent>",
              Quoted({"a|b"}));
    EXPECT_EQ("<argument 2 holds a line feed, which the service drops>", Quoted({"a", "", "x\ny"}));
    EXPECT_EQ("<argument 1 holds a carriage return, which the service drops>",
              Quoted({"a", "x\r"}));
    EXPECT_EQ("<argument 1 holds a NUL character, which the service drops>",
              Quoted({"a", std::string("x\0y", 3)}));
    EXPECT_EQ("<argument 1 is not valid UTF-8, which is all that the service reads>",
              Quoted({"a", "\xFF"}));
    EXPECT_EQ(Trouble::kInexpressible, QuoteWords({"|"}).GetProblem().trouble);
}

TEST(TesselctlQuoting, RandomWords_ComeBackExactlyOrAreRefused) {
    const std::vector<std::string> letters = {"a",
                                              "/",
                                              " ",
                                              " ",
                                              "\"",
                                              "\"",
                                              "'",
                                              "'",
                                              "\t",
                                              "\xC3\xA9",
                                              "\xF0\x9F\x98\x80",
                                              "|",
                                              "\n",
                                              "\r",
                                              "\xC3",
                                              std::string(1, '\0')};
    // The first eleven can be sent, the others cannot; most words take only the former.
    std::mt19937 random(20081);
    int sent = 0;
    int refused = 0;
    for (int round = 0; round < 50000; round++) {
        Words words(1 + random() % 4);
        bool sendable = true;
        for (std::string& word : words) {
            for (std::size_t length = random() % 7; length > 0; length--) {
                const std::size_t letter = random() % 40 == 0 ? 11 + random() % 5 : random() % 11;
                word += letters[letter];
                sendable = sendable && letter < 11;
            }
        }
        const auto line = QuoteWords(words);
        ASSERT_EQ(sendable, line.Ok());
        if (!line.Ok()) {
            refused++;
            continue;
        }
        sent++;
        ASSERT_EQ(words, TakeApart(line.Value())) << line.Value();
        ASSERT_EQ(words[0], FirstWord(line.Value())) << line.Value();
    }
    EXPECT_GT(sent, 10000);
    EXPECT_GT(refused, 1000);
}

TEST(TesselctlQuoting, FirstWord_OfAnyLineIsTheServicesFirstWord) {
    std::mt19937 random(7);
    for (int round = 0; round < 20000; round++) {
        std::string line;
        for (std::size_t length = 1 + random() % 8; length > 0; length--)
            line += "ab \"' "[random() % 6];
        const Words words = TakeApart(line);
        ASSERT_EQ(words.empty() ? "" : words[0], FirstWord(line)) << line;
    }
}

TEST(TesselctlQuoting, ALineAsTyped_IsOnlyRefusedForWhatCannotBeSent) {
    EXPECT_EQ("", WhyUnsendable("checkExists 'a b", "the line"));
    EXPECT_EQ("the line holds a vertical bar, which ends a command and cannot be sent",
              WhyUnsendable("platform|platform", "the line"));
}

TEST(TesselctlUtf8, EveryCharacter_IsValidAndNothingElse) {
    for (unsigned code = 0; code <= 0x10FFFF; code++) {
        std::string text;
        const auto put = [&](unsigned byte) { text += static_cast<char>(byte); };
        if (code < 0x80) {
            put(code);
        } else if (code < 0x800) {
            put(0xC0 | code >> 6);
            put(0x80 | (code & 0x3F));
        } else if (code < 0x10000) {
            put(0xE0 | code >> 12);
            put(0x80 | (code >> 6 & 0x3F));
            put(0x80 | (code & 0x3F));
        } else {
            put(0xF0 | code >> 18);
            put(0x80 | (code >> 12 & 0x3F));
            put(0x80 | (code >> 6 & 0x3F));
            put(0x80 | (code & 0x3F));
        }
        const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
        ASSERT_EQ(surrogate, FindInvalidUtf8(text) != std::string::npos) << code;
        // Cut off, no character of several bytes is valid.
        const std::string cut = text.substr(0, text.size() - 1);
        ASSERT_EQ(!cut.empty(), FindInvalidUtf8(cut) != std::string::npos) << code;
    }
}

TEST(TesselctlUtf8, OverlongFormsAndStrayBytes_AreFoundWhereTheyStand) {
    EXPECT_EQ(0U, FindInvalidUtf8("\xC0\x80"));
    EXPECT_EQ(0U, FindInvalidUtf8("\xC1\xBF"));
    EXPECT_EQ(1U, FindInvalidUtf8("a\xE0\x9F\xBF"));
    EXPECT_EQ(0U, FindInvalidUtf8("\xF0\x8F\xBF\xBF"));
    EXPECT_EQ(0U, FindInvalidUtf8("\xF4\x90\x80\x80"));
    EXPECT_EQ(0U, FindInvalidUtf8("\xF5\x80\x80\x80"));
    EXPECT_EQ(2U, FindInvalidUtf8("\xC3\xA9\xA9"));
    EXPECT_EQ(std::string::npos, FindInvalidUtf8(""));
}

}  // namespace
