#include "tesselctl/Quoting.h"

#include <algorithm>

#include "tesselctl/Utf8.h"

namespace tesselctl {
namespace {

bool IsQuote(char c) {
    return c == '"' || c == '\'';
}

std::string Quote(const std::string& word) {
    if (word.empty()) return "\"\"";
    if (word.find_first_of(" \"'") == std::string::npos) return word;
    // A stretch runs up to the next character of its own quote; there the other quote takes over.
    std::string quoted;
    for (std::size_t at = 0; at < word.size();) {
        const std::size_t next = word.find_first_of("\"'", at);
        const char quote = next != std::string::npos && word[next] == '"' ? '\'' : '"';
        const std::size_t end = std::min(word.find(quote, at), word.size());
        quoted += quote;
        quoted.append(word, at, end - at);
        quoted += quote;
        at = end;
    }
    return quoted;
}

}  // namespace

std::string WhyUnsendable(std::string_view line, std::string_view what) {
    const std::string subject(what);
    if (line.find('|') != std::string_view::npos)
        return subject + " holds a vertical bar, which ends a command and cannot be sent";
    if (line.find('\n') != std::string_view::npos)
        return subject + " holds a line feed, which the service drops";
    if (line.find('\r') != std::string_view::npos)
        return subject + " holds a carriage return, which the service drops";
    if (line.find('\0') != std::string_view::npos)
        return subject + " holds a NUL character, which the service drops";
    if (FindInvalidUtf8(line) != std::string_view::npos)
        return subject + " is not valid UTF-8, which is all that the service reads";
    return {};
}

Result<std::string> QuoteWords(const std::vector<std::string>& words) {
    std::string line;
    for (std::size_t i = 0; i < words.size(); i++) {
        const std::string what = i == 0 ? "the command" : "argument " + std::to_string(i);
        const std::string why = WhyUnsendable(words[i], what);
        if (!why.empty()) return Problem{Trouble::kInexpressible, why};
        if (i > 0) line += ' ';
        line += Quote(words[i]);
    }
    // An empty word counts only when a space ends it.
    if (!words.empty() && words.back().empty()) line += ' ';
    return line;
}

std::string FirstWord(std::string_view line) {
    std::string word;
    char open = 0;
    for (const char c : line) {
        if (open == 0 && c == ' ') break;
        if (open == 0 && IsQuote(c))
            open = c;
        else if (c == open)
            open = 0;
        else
            word += c;
    }
    return word;
}

}  // namespace tesselctl
