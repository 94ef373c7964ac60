// The service's command language, seen from the sending side.
//
// A command is one line of words, ended on the wire by a vertical bar. Words are separated by
// single spaces; both the double quote and the apostrophe open a stretch that lasts until the same
// character again, and stretches that touch join into one word. There is no escape character, so:
//   - a word with both kinds of quotes is sent as stretches of different quotes that touch;
//   - an empty word is a pair of quotes; as the last word it needs a space behind it to count;
//   - a vertical bar cannot be said at all; line feed, carriage return and NUL are dropped.
// Everything here is UTF-8.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tesselctl/Problem.h"

namespace tesselctl {

// The line that the service takes apart into exactly these words, or why there is none
// (kInexpressible).
Result<std::string> QuoteWords(const std::vector<std::string>& words);

// Why a line cannot be sent as it stands, or an empty text. `what` names the offender in the text
// ("the line").
std::string WhyUnsendable(std::string_view line, std::string_view what);

// The first word of a line, as the service reads it.
std::string FirstWord(std::string_view line);

}  // namespace tesselctl
