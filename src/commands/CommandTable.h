// A family of commands as a table: one row is one command, and the order of the rows is the order
// in which they are tried.
//
// A command matches when the message's first word begins with its name, so a name that begins with
// another row's name must stand before that row.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "commands/Status.h"

// A message's words: the command's name, then its arguments.
using Words = std::vector<std::wstring>;

// Instead of a number of arguments: the command reads the words that it needs and ignores the rest.
constexpr int kAnyNumberOfArguments = -1;

// Context is what a family's handlers are told beside the words.
template <typename... Context>
struct CommandRow {
    const char* name;
    int arguments;
    Status (*handler)(const Words& words, Context... context);
};

using Command = CommandRow<>;

// Whether ROW's name is that of the command in WORDS.
bool IsCommand(const char* name, const Words& words);
// Whether WORDS has as many arguments as a row asks for; logs it when not.
bool HasArguments(int arguments, const Words& words);

// Runs the first row of TABLE that matches. False when none does, and STATUS is untouched.
template <typename... Context, std::size_t kRows>
bool RunCommand(const CommandRow<Context...> (&table)[kRows], const Words& words, Status& status,
                Context... context) {
    for (const CommandRow<Context...>& row : table) {
        if (IsCommand(row.name, words)) {
            status = HasArguments(row.arguments, words) ? row.handler(words, context...)
                                                        : Status::kSyntaxError;
            return true;
        }
    }
    return false;
}
