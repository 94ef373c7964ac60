// What a message from the service says.
//
// An answer is a status word, alone or followed by a text. Whatever else arrives (the list of
// attached tablets after the handshake, words about the pen, what happens on the channels) is a
// notice that answers no command.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tesselctl {

enum class Word {
    kNone,  // the command has no answer
    kSuccess,
    kFailure,
    kSyntaxError,
    kTrue,
    kFalse,
    kQuitAcknowledged,
    kIconReady,
    kIconMissing
};

struct Answer {
    Word word = Word::kNone;
    std::string text;  // what follows Success, Failure or SyntaxError; else empty
};

// The answer that a message is, without its vertical bar; nothing for a notice.
std::optional<Answer> ReadAnswer(std::string_view message);

// Whether a message is one of the notices that the service sends unasked.
bool IsNotice(std::string_view message);

int ExitStatusOf(const Answer& answer);

// What belongs on standard output, with its line feed: the text of a Success (nothing when it is
// empty), the other words as they are. Failures have nothing there.
std::string OutputOf(const Answer& answer);

// What belongs on standard error: one line for Failure and SyntaxError, empty for the others.
std::string ComplaintOf(const Answer& answer, std::string_view command);

// A text fit for one line of a terminal: control characters become blanks, a long text is cut to
// `most` bytes.
std::string OneLine(std::string_view text, std::size_t most);

}  // namespace tesselctl
