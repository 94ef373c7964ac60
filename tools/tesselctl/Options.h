// The command line of tesselctl, taken apart. Options stand before the command; everything behind
// the command belongs to it and is not looked at, unless it is one of tesselctl's own.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tesselctl/Log.h"

namespace tesselctl {

enum class Action { kSend, kShell, kStatus, kLog, kHelp, kVersion };

struct Options {
    Action action = Action::kHelp;
    std::optional<std::string> home;
    std::optional<std::chrono::milliseconds> timeout;  // 0 is for ever
    std::vector<std::string>
        words;  // kSend: the command and its arguments; kHelp: the topic, if any
    LogRequest log;
    bool listNames = false;  // kHelp: names and arguments only, for the completion
};

// One option as the usage text shows it.
struct OptionHelp {
    std::string_view form;  // "--timeout SECONDS"
    std::string_view help;
};
const std::vector<OptionHelp>& AllOptions();

// A command of tesselctl's own.
struct LocalCommand {
    std::string_view name;
    std::string_view arguments;
    Action action;
    std::string_view help;
    std::vector<OptionHelp> options;
};
const std::vector<LocalCommand>& LocalCommands();

// The options, or what is wrong with them in one line.
struct ParsedOptions {
    Options options;
    std::string error;  // empty when all is well
};
ParsedOptions ParseOptions(const std::vector<std::string>& arguments);

}  // namespace tesselctl
