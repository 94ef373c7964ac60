// Every command of the service: where it goes, what it takes, what comes back. One row is one
// command; the usage text, the completion and the check of the man page all read this table.
//
// The rows of a server stand in the order in which the service tries them, because it matches a
// command by its beginning: "platforms" runs platform.
#pragma once

#include <string_view>
#include <vector>

namespace tesselctl {

// The three ports of the service. Only the command server asks for the key.
enum class Server { kCommand, kPressure, kApps };

enum class ReplyKind {
    kAnswer,  // one answer
    kCloses,  // no answer when it goes well: the service closes the connection and ends
    kNone     // no answer at all
};

struct Command {
    std::string_view name;
    Server server;
    std::string_view arguments;  // their names, separated by spaces; empty for none
    ReplyKind reply;
    std::string_view help;  // one sentence
};

const std::vector<Command>& AllCommands();

// The row that the service would run for this word, or null: it will answer for itself that it
// knows none.
const Command* FindCommand(std::string_view word);

// For messages and headings: "command server".
std::string_view NameOf(Server server);

}  // namespace tesselctl
