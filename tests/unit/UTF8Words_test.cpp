#include "commands/UTF8Words.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "core/ConvertUTF.h"
#include "core/Helpers.h"

namespace {

using testing::ElementsAre;

std::vector<std::string> All(const UTF8Words& words) {
    std::vector<std::string> all;
    for (std::size_t number = 0; number < words.size(); ++number) {
        all.emplace_back(words[number]);
    }
    return all;
}

bool IsWithin(std::string_view word, const std::string& message) {
    return word.data() >= message.data() &&
           word.data() + word.size() <= message.data() + message.size();
}

TEST(UTF8Words, OfEveryShortMessage_AreThoseOfTheWideMessage) {
    const std::vector<std::string> kUnits = {"a", "\xC3\xA9", " ", "'", "\""};
    std::vector<std::string> messages = {""};
    for (std::size_t first = 0; first < messages.size(); ++first) {
        const std::string message = messages[first];
        std::vector<std::wstring> wide;
        for (const std::string& word : All(UTF8Words(message))) {
            wide.push_back(UTF32FromUTF8(word));
        }
        const std::wstring wideMessage = UTF32FromUTF8(message);
        ASSERT_EQ(Helpers::splitCommand(wideMessage), wide) << message;
        for (std::size_t kind = 0; wideMessage.size() < 6 && kind < kUnits.size(); ++kind) {
            messages.push_back(message + kUnits[kind]);
        }
    }
    EXPECT_EQ(19531u, messages.size());
}

TEST(UTF8Words, InOnePiece_AreNotCopied) {
    const std::string message = "sendDataToChannel clock \"it is noon\" 7";
    const UTF8Words words(message);
    EXPECT_THAT(All(words), ElementsAre("sendDataToChannel", "clock", "it is noon", "7"));
    for (std::size_t number = 0; number < words.size(); ++number) {
        EXPECT_TRUE(IsWithin(words[number], message)) << number;
    }
}

TEST(UTF8Words, InSeveralPieces_ArePutTogether) {
    const std::string message = "a'b c'd\"e'\" '1''2''3' x";
    EXPECT_THAT(All(UTF8Words(message)), ElementsAre("ab cde'", "123", "x"));
}

TEST(UTF8Words, ManyThatArePutTogether_AllStay) {
    std::string message;
    std::vector<std::string> expected;
    for (int number = 0; number < 1000; ++number) {
        const std::string text = std::to_string(number);
        message += "word'" + text + "' ";
        expected.push_back("word" + text);
    }
    EXPECT_EQ(expected, All(UTF8Words(message)));
}

}  // namespace
