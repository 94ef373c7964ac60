#include "tesselctl/LocalCommands.h"

#include "tesselctl/Options.h"
#include "tesselctl/Paths.h"

namespace tesselctl {
namespace {

template <const std::string_view& kName>
std::string TakeNothing(Arguments& arguments, Options&) {
    return arguments.AtEnd() ? std::string()
                             : Wrong('\'' + std::string(kName) + "' takes no arguments");
}

constexpr std::string_view kShell = "shell";
constexpr std::string_view kStatus = "status";

std::string TakeLog(Arguments& arguments, Options& options) {
    return ParseLog(arguments, options.log);
}

std::string TakePen(Arguments& arguments, Options& options) {
    return ParsePen(arguments, options.pen);
}

std::string TakeChannel(Arguments& arguments, Options& options) {
    return ParseChannel(arguments, options.channel);
}

template <Deed kDeed>
std::string TakeApplication(Arguments& arguments, Options& options) {
    options.application.deed = kDeed;
    return ParseApplication(arguments, options.application);
}

std::string TakeIcon(Arguments& arguments, Options& options) {
    return ParseIcon(arguments, options.home.value_or(UserHome()), options.icon);
}

std::string TakeHelp(Arguments& arguments, Options& options) {
    options.listNames = arguments.TakeFlag("--list");
    options.words = arguments.Rest();
    return options.words.size() > 1 ? Wrong("'help' takes one command") : std::string();
}

const std::vector<OptionHelp>& ApplicationOptions() {
    static const auto& options = *new std::vector<OptionHelp>{
        {"--air", "It is an AIR application."},
        {"--native", "It is an ordinary application."},
        {"--name NAME", "What the service calls it in its log."},
    };
    return options;
}

}  // namespace

const std::vector<LocalCommand>& LocalCommands() {
    static const auto& commands = *new std::vector<LocalCommand>{
        {kShell,
         "",
         Action::kShell,
         "Takes commands from a prompt, or from a pipe.",
         {},
         TakeNothing<kShell>},
        {kStatus,
         "",
         Action::kStatus,
         "Tells whether the service runs, and where.",
         {},
         TakeNothing<kStatus>},
        {"log",
         "",
         Action::kLog,
         "Shows the log file of the service.",
         {{"-f, --follow", "Goes on showing what is added."},
          {"-n, --lines LINES", "Shows the last LINES lines (20), or 'all'."},
          {"--enable", "Makes the log file; the service writes to it from its next start on."}},
         TakeLog},
        {"pen",
         "",
         Action::kPen,
         "Shows what the pen does, until Control-C. Who got pen data before must ask again.",
         {{"--app NAME", "Watches the process NAME (StylusPadDriver)."},
          {"--raw", "Writes the bytes as they come."},
          {"--json", "Writes an object a line."},
          {"--plot FILE", "Draws the strokes into the PNG file FILE at the end."}},
         TakePen},
        {"channel",
         "listen NAME | send FROM TO DATA...",
         Action::kChannel,
         "Shows what is sent to the channel NAME, or sends DATA from channel to channel.",
         {},
         TakeChannel},
        {"install", "PACKAGE [APP-ID]", Action::kApplication,
         "Installs an application from PACKAGE (.air, .pkg or .zip).", ApplicationOptions(),
         TakeApplication<Deed::kInstall>},
        {"upgrade", "PACKAGE [APP-ID]", Action::kApplication,
         "Replaces an application by the one in PACKAGE.", ApplicationOptions(),
         TakeApplication<Deed::kUpgrade>},
        {"remove", "APP-ID", Action::kApplication, "Removes an application.", ApplicationOptions(),
         TakeApplication<Deed::kRemove>},
        {"start", "APP-ID", Action::kApplication, "Starts an application.", ApplicationOptions(),
         TakeApplication<Deed::kStart>},
        {"stop", "APP-ID", Action::kApplication,
         "Quits an application, by force when it does not go.", ApplicationOptions(),
         TakeApplication<Deed::kStop>},
        {"is-running", "APP-ID", Action::kApplication, "Tells whether an application runs.",
         ApplicationOptions(), TakeApplication<Deed::kIsRunning>},
        {"is-installed", "APP-ID", Action::kApplication, "Tells whether an application is there.",
         ApplicationOptions(), TakeApplication<Deed::kIsInstalled>},
        {"icon",
         "APP [FILE]",
         Action::kIcon,
         "Saves the icon of the application APP as the PNG file FILE.",
         {},
         TakeIcon},
        {"help",
         "[COMMAND]",
         Action::kHelp,
         "Shows this text, or what is known about COMMAND.",
         {{"--list", "Lists the commands of the service with their arguments."}},
         TakeHelp},
    };
    return commands;
}

const LocalCommand* FindLocalCommand(std::string_view name) {
    for (const LocalCommand& command : LocalCommands())
        if (command.name == name) return &command;
    return nullptr;
}

}  // namespace tesselctl
