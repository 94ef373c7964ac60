// The usage texts, made from the tables of commands and options.
#pragma once

#include <string>
#include <string_view>

namespace tesselctl {

std::string UsageText();

// The text about one command, of the service or of tesselctl's own; empty when there is none of
// that name.
std::string HelpOn(std::string_view name);

// "name arguments" of each command of the service, a line each, for the completion.
std::string CommandList();

// What the shell answers to "help": the commands without the options.
std::string ShellHelp();

}  // namespace tesselctl
