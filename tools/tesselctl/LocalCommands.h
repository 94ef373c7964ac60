// Every command of tesselctl's own: what it takes, what it is for, who takes its arguments apart.
// One row is one command; the usage text, the completion's test and the check of the man page read
// this table.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tesselctl/Arguments.h"

namespace tesselctl {

enum class Action {
    kSend,
    kShell,
    kStatus,
    kLog,
    kPen,
    kChannel,
    kApplication,
    kIcon,
    kHelp,
    kVersion
};

struct Options;

// One option as the usage text shows it.
struct OptionHelp {
    std::string_view form;  // "--timeout SECONDS"
    std::string_view help;
};

struct LocalCommand {
    std::string_view name;
    std::string_view arguments;
    Action action;
    std::string_view help;
    std::vector<OptionHelp> options;
    // Takes what stands behind the name; what is wrong with it, or an empty text.
    std::string (*parse)(Arguments& arguments, Options& options);
};

const std::vector<LocalCommand>& LocalCommands();

// Null when there is none of that name.
const LocalCommand* FindLocalCommand(std::string_view name);

}  // namespace tesselctl
