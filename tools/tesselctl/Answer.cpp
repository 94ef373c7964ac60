#include "tesselctl/Answer.h"

#include <algorithm>
#include <iterator>

#include "tesselctl/ExitStatus.h"

namespace tesselctl {
namespace {

// One row is one status word: how it stands on the wire and what it comes to. A word that takes a
// text is followed by one space even when the text is empty.
struct Row {
    Word word;
    std::string_view text;
    bool takesText;
    ExitStatus status;
};

constexpr Row kRows[] = {
    {Word::kSuccess, "Success", true, kExitSuccess},
    {Word::kFailure, "Failure", true, kExitNegative},
    {Word::kSyntaxError, "SyntaxError", true, kExitSyntaxError},
    {Word::kTrue, "True", false, kExitSuccess},
    {Word::kFalse, "False", false, kExitNegative},
    {Word::kQuitAcknowledged, "QuitAcknowledged", false, kExitSuccess},
    {Word::kIconReady, "IconReady", false, kExitSuccess},
    {Word::kIconMissing, "IconMissing", false, kExitNegative},
};

// Failure details are logged texts, and those are now and then the whole output of a tool.
constexpr std::size_t kLongestDetail = 4000;

// How the notices begin.
constexpr std::string_view kNotices[] = {
    "CurrentAttachedDevices=", "PenData.",
    "BroadcastRegisteredChannel=", "BroadcastUnRegisteredChannel=", "ForwardDataToChannel "};

const Row* RowOf(Word word) {
    for (const Row& row : kRows)
        if (row.word == word) return &row;
    return nullptr;
}

}  // namespace

std::optional<Answer> ReadAnswer(std::string_view message) {
    for (const Row& row : kRows) {
        if (message.substr(0, row.text.size()) != row.text) continue;
        const std::string_view rest = message.substr(row.text.size());
        if (row.takesText && !rest.empty() && rest[0] == ' ')
            return Answer{row.word, std::string(rest.substr(1))};
        if (!row.takesText && rest.empty()) return Answer{row.word, {}};
    }
    return std::nullopt;
}

bool IsNotice(std::string_view message) {
    return std::any_of(std::begin(kNotices), std::end(kNotices), [&](std::string_view beginning) {
        return message.substr(0, beginning.size()) == beginning;
    });
}

int ExitStatusOf(const Answer& answer) {
    const Row* row = RowOf(answer.word);
    return row == nullptr ? kExitSuccess : row->status;
}

std::string OutputOf(const Answer& answer) {
    const Row* row = RowOf(answer.word);
    if (row == nullptr) return {};
    if (!row->takesText) return std::string(row->text) + '\n';
    return row->word == Word::kSuccess && !answer.text.empty() ? answer.text + '\n' : std::string();
}

std::string ComplaintOf(const Answer& answer, std::string_view command) {
    const std::string name(OneLine(command, 80));
    const std::string detail = OneLine(answer.text, kLongestDetail);
    if (answer.word == Word::kFailure) return name + " failed: " + detail;
    if (answer.word == Word::kSyntaxError) return name + " was not understood: " + detail;
    return {};
}

std::string OneLine(std::string_view text, std::size_t most) {
    std::string line(text.substr(0, most));
    std::replace_if(
        line.begin(), line.end(),
        [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }, ' ');
    if (text.size() > most) line += "...";
    return line;
}

}  // namespace tesselctl
