// The command line of tesselctl, taken apart. Options stand before the command; everything behind
// the command belongs to it and is not looked at, unless it is one of tesselctl's own.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "tesselctl/ApplicationRequest.h"
#include "tesselctl/ChannelRequest.h"
#include "tesselctl/IconRequest.h"
#include "tesselctl/LocalCommands.h"
#include "tesselctl/LogRequest.h"
#include "tesselctl/PenRequest.h"

namespace tesselctl {

struct Options {
    Action action = Action::kHelp;
    std::optional<std::string> home;
    std::optional<std::chrono::milliseconds> timeout;  // 0 is for ever
    std::vector<std::string>
        words;  // kSend: the command and its arguments; kHelp: the topic, if any
    LogRequest log;
    PenRequest pen;
    ChannelRequest channel;
    ApplicationRequest application;
    IconRequest icon;
    bool listNames = false;  // kHelp: names and arguments only, for the completion
};

const std::vector<OptionHelp>& AllOptions();

// The options, or what is wrong with them in one line.
struct ParsedOptions {
    Options options;
    std::string error;  // empty when all is well
};
ParsedOptions ParseOptions(const std::vector<std::string>& arguments);

}  // namespace tesselctl
