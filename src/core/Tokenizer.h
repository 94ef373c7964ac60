// The two searches of the command language: the next of several marks in a text, and the words of a
// message. For texts of any unit. Pure functions, safe on every thread.
#pragma once

#include <algorithm>
#include <cstddef>

// Where the next of several marks stands in a text. Each mark is looked for by itself, with the C
// library's fastest search, and only again behind where it was found: however many marks there are,
// the text is read once for each kind.
template <typename Text, std::size_t kKinds>
class NextMark {
  public:
    NextMark(const Text& itsText, const char (&itsMarks)[kKinds]) : text(itsText) {
        for (std::size_t kind = 0; kind < kKinds; ++kind) {
            const auto mark = static_cast<Unit>(itsMarks[kind]);
            places[kind] = {mark, text.find(mark)};
        }
    }

    // The first one from FROM on; the text's size when there is none. FROM never goes back.
    std::size_t From(std::size_t from) {
        std::size_t first = text.size();
        for (Place& place : places) {
            if (place.next < from) {
                place.next = text.find(place.mark, from);
            }
            first = std::min(first, place.next);
        }
        return first;
    }

  private:
    using Unit = typename Text::value_type;

    struct Place {
        Unit mark;
        // npos when there is none any more.
        std::size_t next;
    };

    const Text& text;
    Place places[kKinds];
};

// What ends a word, and between what kinds of quotes it does not.
constexpr char kWordMarks[] = {' ', '"', '\''};

// Appends the pieces of MESSAGE's words to WORD one by one, and calls END behind the last one of
// each word. Words are separated by single blanks; quotes of one kind hold together what is between
// them, and there is no escape. An empty word at the end of the message is none.
template <typename Text, typename Word, typename End>
void ForEachWord(const Text& message, Word& word, End end) {
    NextMark<Text, sizeof kWordMarks> marks(message, kWordMarks);
    for (std::size_t from = 0; from < message.size();) {
        std::size_t until = marks.From(from);
        word.Append(message.substr(from, until - from));
        if (until < message.size() && message[until] == ' ') {
            end();
        } else if (until < message.size()) {
            // Up to the quote of its kind, or to the end when there is none.
            const std::size_t open = until;
            until = std::min(message.find(message[open], open + 1), message.size());
            word.Append(message.substr(open + 1, until - open - 1));
        }
        from = until + 1;
    }
    if (!word.IsEmpty()) {
        end();
    }
}
