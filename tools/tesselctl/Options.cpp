#include "tesselctl/Options.h"

#include <cmath>
#include <cstdlib>

#include "tesselctl/Arguments.h"

namespace tesselctl {
namespace {

std::optional<std::chrono::milliseconds> SecondsOf(const std::string& text) {
    constexpr double kMost = 1e9;
    if (text.empty() || text.find_first_not_of("0123456789.") != std::string::npos)
        return std::nullopt;
    char* end = nullptr;
    const double seconds = std::strtod(text.c_str(), &end);
    if (*end != '\0' || seconds > kMost) return std::nullopt;
    return std::chrono::milliseconds(static_cast<long long>(std::ceil(seconds * 1000)));
}

// What an option asks for instead of a command.
std::optional<Action> TakeAction(Arguments& cursor) {
    if (cursor.TakeFlag("--help") || cursor.TakeFlag("-h")) return Action::kHelp;
    if (cursor.TakeFlag("--version") || cursor.TakeFlag("-V")) return Action::kVersion;
    return std::nullopt;
}

std::string ParseGlobal(Arguments& cursor, Options& options) {
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

// Everything from the command on.
std::string ParseCommand(Arguments& cursor, Options& options) {
    const LocalCommand* const local = FindLocalCommand(cursor.Peek());
    if (local == nullptr) {
        options.action = Action::kSend;
        options.words = cursor.Rest();
        return {};
    }
    cursor.Take();
    options.action = local->action;
    if (cursor.TakeFlag("--help")) {
        options.action = Action::kHelp;
        options.words = {std::string(local->name)};
        return {};
    }
    return local->parse(cursor, options);
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

ParsedOptions ParseOptions(const std::vector<std::string>& arguments) {
    ParsedOptions parsed;
    Arguments cursor(arguments);
    while (cursor.AtOption()) {
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
