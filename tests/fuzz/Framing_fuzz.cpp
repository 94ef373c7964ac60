// Framing and words: a batch gives the same messages however it is cut into pieces, and a message
// the same words in both of the forms in which commands read it.
//
// An input is a byte that says how long the pieces are, and the batch.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Bytes.h"
#include "Require.h"
#include "WordsOf.h"
#include "commands/UTF8Words.h"
#include "core/ConvertUTF.h"
#include "core/Helpers.h"

namespace {

// What the rules say, a character at a time.
struct Frames {
    std::vector<std::string> messages;
    std::string rest;

    void Add(std::string_view batch) {
        for (const char character : batch) {
            if (character == '|') {
                messages.push_back(rest);
                rest.clear();
            } else if (character != '\n' && character != '\r' && character != '\0') {
                rest += character;
            }
        }
    }
};

void CutIntoPieces(std::string_view batch, std::size_t length, const Frames& expected) {
    std::vector<std::string> messages;
    std::string pending;
    for (std::size_t from = 0; from < batch.size(); from += length) {
        for (std::string& message :
             Helpers::splitIntoCommands(&pending, std::string(batch.substr(from, length)))) {
            messages.push_back(std::move(message));
        }
    }
    Require(messages == expected.messages, "pieces give the messages of the whole");
    Require(pending == expected.rest, "pieces leave what the whole leaves");
}

void CutInTwo(std::string_view batch, std::size_t place, const Frames& expected) {
    std::string pending;
    std::vector<std::string> messages =
        Helpers::splitIntoCommands(&pending, std::string(batch.substr(0, place)));
    for (std::string& message :
         Helpers::splitIntoCommands(&pending, std::string(batch.substr(place)))) {
        messages.push_back(std::move(message));
    }
    Require(messages == expected.messages, "two batches give the messages of one");
    Require(pending == expected.rest, "two batches leave what one leaves");
}

void LookAtWords(const std::string& message) {
    const std::vector<std::string> expected = WordsOf(message);
    const UTF8Words words(message);
    Require(words.size() == expected.size() && words.empty() == expected.empty(),
            "a message has as many words as its blanks say");
    for (std::size_t number = 0; number < words.size(); ++number) {
        Require(words[number] == expected[number], "a word is what its quotes hold together");
    }
    const bool isText = IsUTF8(message);
    const auto widened = [isText](const std::string& text) {
        return isText ? UTF32FromUTF8(text) : Helpers::stringToWString(text);
    };
    const std::vector<std::wstring> wide = Helpers::splitCommand(widened(message));
    Require(wide.size() == expected.size(), "wide messages have the same words");
    for (std::size_t number = 0; number < wide.size(); ++number) {
        Require(wide[number] == widened(expected[number]), "wide words are the same");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Bytes input(data, size);
    const std::size_t length = std::size_t{1} + input.TakeByte();
    const std::string_view batch = input.TakeAll();
    Frames expected;
    expected.Add(batch);

    std::string pending;
    const std::vector<std::string> messages =
        Helpers::splitIntoCommands(&pending, std::string(batch));
    Require(messages == expected.messages, "messages end with bars, and with nothing else");
    Require(pending == expected.rest, "what has no end is kept");
    CutIntoPieces(batch, length, expected);
    // Everywhere in a short one.
    const std::size_t step = 1 + batch.size() / 32;
    for (std::size_t place = length % step; place <= batch.size(); place += step) {
        CutInTwo(batch, place, expected);
    }
    for (const std::string& message : messages) {
        Require(message.find_first_of(std::string_view("|\n\r\0", 4)) == std::string::npos,
                "a message holds no mark");
        LookAtWords(message);
    }
    LookAtWords(pending);
    // Also with the marks that no message has.
    LookAtWords(std::string(batch));
    return 0;
}
