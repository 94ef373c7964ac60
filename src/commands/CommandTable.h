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

struct Command {
    const char* name;
    int arguments;
    Status (*handler)(const Words& words);
};

struct CommandFamily {
    const Command* rows;
    std::size_t count;
};

// Runs the first row of FAMILY that matches. False when none does, and STATUS is untouched.
bool RunCommand(const CommandFamily& family, const Words& words, Status& status);
