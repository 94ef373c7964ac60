// The words of a message as the rules of quoting say them, a character at a time: the reference
// that the service's own ways of cutting are compared with.
#pragma once

#include <vector>

// TEXT may be of bytes or of wide characters.
template <typename Text>
std::vector<Text> WordsOf(const Text& message) {
    std::vector<Text> words(1);
    typename Text::value_type quote = 0;
    for (const auto character : message) {
        if (quote != 0 && character == quote) {
            quote = 0;
        } else if (quote == 0 && (character == '"' || character == '\'')) {
            quote = character;
        } else if (quote == 0 && character == ' ') {
            words.emplace_back();
        } else {
            words.back() += character;
        }
    }
    if (words.back().empty()) words.pop_back();
    return words;
}
