#include "tesselctl/Help.h"

#include <algorithm>
#include <iterator>

#include "tesselctl/Commands.h"
#include "tesselctl/Options.h"

namespace tesselctl {
namespace {

std::string WithArguments(std::string_view name, std::string_view arguments) {
    std::string text(name);
    if (!arguments.empty()) text.append(" ").append(arguments);
    return text;
}

// "  form      help", the help wrapped in its column; a form that reaches into it gets a line of
// its own.
std::string Row(const std::string& form, std::string_view help) {
    constexpr std::size_t kColumn = 32;
    constexpr std::size_t kWidth = 80;
    std::string text;
    std::string line = "  " + form;
    bool atColumn = false;
    const auto goToColumn = [&] {
        if (line.size() + 2 > kColumn) {
            text += line + '\n';
            line.clear();
        }
        line.resize(kColumn, ' ');
        atColumn = true;
    };
    goToColumn();
    while (!help.empty()) {
        const std::string_view word = help.substr(0, help.find(' '));
        if (!atColumn && line.size() + 1 + word.size() > kWidth) goToColumn();
        if (!atColumn) line += ' ';
        line += word;
        atColumn = false;
        help.remove_prefix(std::min(word.size() + 1, help.size()));
    }
    return text + line + '\n';
}

std::string Rows(const std::vector<OptionHelp>& options) {
    std::string text;
    for (const OptionHelp& option : options)
        text += Row(std::string(option.form), option.help);
    return text;
}

bool SameOptions(const LocalCommand& one, const LocalCommand& other) {
    return std::equal(
        one.options.begin(), one.options.end(), other.options.begin(), other.options.end(),
        [](const OptionHelp& left, const OptionHelp& right) { return left.form == right.form; });
}

// Commands that follow each other and have the same options show them once, below the last.
std::string OwnCommands() {
    std::string text;
    const std::vector<LocalCommand>& commands = LocalCommands();
    for (auto command = commands.begin(); command != commands.end(); ++command) {
        text += Row(WithArguments(command->name, command->arguments), command->help);
        const auto next = std::next(command);
        if (next != commands.end() && SameOptions(*command, *next)) continue;
        for (const OptionHelp& option : command->options)
            text += Row("  " + std::string(option.form), option.help);
    }
    return text;
}

std::string ServiceCommands() {
    std::string text;
    for (const Server server : {Server::kCommand, Server::kPressure, Server::kApps}) {
        text += "\nCommands of the " + std::string(NameOf(server)) + ":\n";
        for (const Command& command : AllCommands())
            if (command.server == server)
                text += Row(WithArguments(command.name, command.arguments), command.help);
    }
    return text;
}

std::string_view AboutReply(ReplyKind reply) {
    switch (reply) {
        case ReplyKind::kAnswer:
            break;
        case ReplyKind::kCloses:
            return "It has no answer when it succeeds: the service closes the connection.\n";
        case ReplyKind::kNone:
            return "It has no answer.\n";
    }
    return "";
}

}  // namespace

std::string UsageText() {
    std::string text =
        "Usage: tesselctl [OPTION...] COMMAND [ARG...]\n"
        "Sends one command to the TesselCore service of this user and prints its answer.\n"
        "\nOptions:\n";
    text += Rows(AllOptions());
    text += "\nCommands of its own:\n";
    text += OwnCommands();
    text += ServiceCommands();
    text +=
        "\nExit status: 0 success, 1 failure or 'no', 2 the service did not understand,\n"
        "3 no answer to be had, 64 tesselctl was called wrongly, 74 output error.\n";
    return text;
}

std::string HelpOn(std::string_view name) {
    for (const Command& command : AllCommands()) {
        if (command.name != name) continue;
        std::string text = "tesselctl " + WithArguments(command.name, command.arguments) + '\n';
        text.append(command.help).append("\n").append(AboutReply(command.reply));
        return text + "Goes to the " + std::string(NameOf(command.server)) + ".\n";
    }
    for (const LocalCommand& command : LocalCommands()) {
        if (command.name != name) continue;
        std::string text = "tesselctl " + std::string(name);
        text += command.options.empty() ? "" : " [OPTION...]";
        text = WithArguments(text, command.arguments) + '\n';
        return text.append(command.help) + '\n' + Rows(command.options);
    }
    return {};
}

std::string CommandList() {
    std::string text;
    for (const Command& command : AllCommands())
        text += WithArguments(command.name, command.arguments) + '\n';
    return text;
}

std::string ShellHelp() {
    return "Words are separated by spaces; 'a b' and \"a b\" are one word each.\n"
           "\nCommands of the shell:\n" +
           Row("help [COMMAND]", "Shows this text, or what is known about COMMAND.") +
           Row("quit", "Leaves the shell; the service goes on.") + ServiceCommands();
}

}  // namespace tesselctl
