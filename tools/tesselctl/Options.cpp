#include "tesselctl/Options.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace tesselctl {
namespace {

constexpr const char* kTryHelp = " (see 'tesselctl --help')";

std::string Wrong(const std::string& what) {
    return what + kTryHelp;
}

bool IsOption(const std::string& argument) {
    return argument.size() > 1 && argument[0] == '-';
}

// Goes through the arguments; an option's value may follow it or be joined to it ("--home=DIR",
// "-n5").
class Cursor {
  public:
    explicit Cursor(const std::vector<std::string>& all) : arguments(all) {}

    bool AtEnd() const { return at == arguments.size(); }
    const std::string& Peek() const { return arguments[at]; }
    std::string Take() { return arguments[at++]; }
    std::vector<std::string> Rest() const {
        return {arguments.begin() + static_cast<std::ptrdiff_t>(at), arguments.end()};
    }

    bool TakeFlag(std::string_view name) {
        if (AtEnd() || Peek() != name) return false;
        at++;
        return true;
    }

    // Whether the option stands here; its value, if it has one, goes to `value`.
    bool TakeOption(std::string_view name, std::optional<std::string>& value) {
        if (AtEnd()) return false;
        const std::string& argument = Peek();
        if (argument.compare(0, name.size(), name) != 0) return false;
        std::string joined = argument.substr(name.size());
        if (joined.empty()) {
            at++;
            value = AtEnd() ? std::optional<std::string>() : Take();
            return true;
        }
        const bool isLong = name.size() > 2;
        if (isLong && joined[0] != '=') return false;
        at++;
        value = isLong ? joined.substr(1) : joined;
        return true;
    }

  private:
    const std::vector<std::string>& arguments;
    std::size_t at = 0;
};

std::optional<std::chrono::milliseconds> SecondsOf(const std::string& text) {
    constexpr double kMost = 1e9;
    if (text.empty() || text.find_first_not_of("0123456789.") != std::string::npos)
        return std::nullopt;
    char* end = nullptr;
    const double seconds = std::strtod(text.c_str(), &end);
    if (*end != '\0' || seconds > kMost) return std::nullopt;
    return std::chrono::milliseconds(static_cast<long long>(std::ceil(seconds * 1000)));
}

std::optional<std::size_t> CountOf(const std::string& text) {
    if (text.empty() || text.size() > 9 ||
        text.find_first_not_of("0123456789") != std::string::npos)
        return std::nullopt;
    return std::strtoul(text.c_str(), nullptr, 10);
}

// What an option asks for instead of a command.
std::optional<Action> TakeAction(Cursor& cursor) {
    if (cursor.TakeFlag("--help") || cursor.TakeFlag("-h")) return Action::kHelp;
    if (cursor.TakeFlag("--version") || cursor.TakeFlag("-V")) return Action::kVersion;
    return std::nullopt;
}

std::string ParseGlobal(Cursor& cursor, Options& options) {
    std::optional<std::string> value;
    if (cursor.TakeOption("--home", value)) {
        if (!value || value->empty()) return Wrong("--home needs a folder");
        options.home = value;
        return {};
    }
    if (cursor.TakeOption("--timeout", value)) {
        options.timeout = value ? SecondsOf(*value) : std::nullopt;
        return options.timeout ? std::string() : Wrong("--timeout needs a number of seconds");
    }
    return Wrong("there is no option " + cursor.Peek());
}

std::string ParseLog(Cursor& cursor, LogRequest& log) {
    while (!cursor.AtEnd()) {
        std::optional<std::string> value;
        if (cursor.TakeFlag("-f") || cursor.TakeFlag("--follow")) {
            log.follow = true;
        } else if (cursor.TakeFlag("--enable")) {
            log.enable = true;
        } else if (cursor.TakeOption("-n", value) || cursor.TakeOption("--lines", value)) {
            const bool all = value && *value == "all";
            log.lines = value && !all ? CountOf(*value) : std::nullopt;
            if (!log.lines && !all) return Wrong("-n needs a number of lines or 'all'");
        } else {
            return Wrong("'log' does not take " + cursor.Peek());
        }
    }
    if (log.enable && log.follow)
        return Wrong("--enable only makes the file, it does not follow it");
    return {};
}

std::string ParseHelp(Cursor& cursor, Options& options) {
    options.listNames = cursor.TakeFlag("--list");
    options.words = cursor.Rest();
    if (options.words.size() > 1) return Wrong("'help' takes one command");
    return {};
}

// Everything from the command on.
std::string ParseCommand(Cursor& cursor, Options& options) {
    const LocalCommand* local = nullptr;
    for (const LocalCommand& command : LocalCommands())
        if (cursor.Peek() == command.name) local = &command;
    if (local == nullptr) {
        options.action = Action::kSend;
        options.words = cursor.Rest();
        return {};
    }
    const std::string name = cursor.Take();
    options.action = local->action;
    if (cursor.TakeFlag("--help")) {
        options.action = Action::kHelp;
        options.words = {name};
        return {};
    }
    if (local->action == Action::kLog) return ParseLog(cursor, options.log);
    if (local->action == Action::kHelp) return ParseHelp(cursor, options);
    return cursor.AtEnd() ? std::string() : Wrong('\'' + name + "' takes no arguments");
}

}  // namespace

const std::vector<OptionHelp>& AllOptions() {
    static const auto& options = *new std::vector<OptionHelp>{
        {"--home DIR", "Looks for the service of another home folder."},
        {"--timeout SECONDS", "Waits that long for an answer (900; 0 is for ever)."},
        {"-h, --help", "Shows this text."},
        {"-V, --version", "Shows the version of tesselctl."},
    };
    return options;
}

const std::vector<LocalCommand>& LocalCommands() {
    static const auto& commands = *new std::vector<LocalCommand>{
        {"shell", "", Action::kShell, "Takes commands from a prompt, or from a pipe.", {}},
        {"status", "", Action::kStatus, "Tells whether the service runs, and where.", {}},
        {"log",
         "",
         Action::kLog,
         "Shows the log file of the service.",
         {{"-f, --follow", "Goes on showing what is added."},
          {"-n, --lines LINES", "Shows the last LINES lines (20), or 'all'."},
          {"--enable", "Makes the log file; the service writes to it from its next start on."}}},
        {"help",
         "[COMMAND]",
         Action::kHelp,
         "Shows this text, or what is known about COMMAND.",
         {{"--list", "Lists the commands of the service with their arguments."}}},
    };
    return commands;
}

ParsedOptions ParseOptions(const std::vector<std::string>& arguments) {
    ParsedOptions parsed;
    Cursor cursor(arguments);
    while (!cursor.AtEnd() && IsOption(cursor.Peek())) {
        if (cursor.TakeFlag("--")) break;
        if (const auto action = TakeAction(cursor)) {
            parsed.options.action = *action;
            return parsed;
        }
        parsed.error = ParseGlobal(cursor, parsed.options);
        if (!parsed.error.empty()) return parsed;
    }
    parsed.error =
        cursor.AtEnd() ? Wrong("no command given") : ParseCommand(cursor, parsed.options);
    return parsed;
}

}  // namespace tesselctl
