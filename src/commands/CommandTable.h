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
#include "core/Helpers.h"

// A message's words: the command's name, then its arguments.
using Words = std::vector<std::wstring>;

// Instead of a number of arguments: the command reads the words that it needs and ignores the rest.
constexpr int kAnyNumberOfArguments = -1;

// Context is what a family's handlers are told beside the words.
template <typename TheWords, typename... Context>
struct CommandRow {
    const char* name;
    int arguments;
    Status (*handler)(const TheWords& words, Context... context);
};

using Command = CommandRow<Words>;

// Whether WORDCOUNT words have as many arguments as a row asks for; logs it when not.
bool HasArguments(int arguments, std::size_t wordCount);

// Runs the first row of TABLE that matches. False when none does, and STATUS is untouched.
template <typename TheWords, typename... Context, std::size_t kRows>
bool RunCommand(const CommandRow<TheWords, Context...> (&table)[kRows], const TheWords& words,
                Status& status, Context... context) {
    for (const CommandRow<TheWords, Context...>& row : table) {
        if (Helpers::str_prefix(row.name, words[0])) {
            status = HasArguments(row.arguments, words.size()) ? row.handler(words, context...)
                                                               : Status::kSyntaxError;
            return true;
        }
    }
    return false;
}
