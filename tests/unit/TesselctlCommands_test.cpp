#include "tesselctl/Commands.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <set>
#include <sstream>

#include "tesselctl/Help.h"
#include "tesselctl/LineEditor.h"
#include "tesselctl/Options.h"
#include "unit/TesselctlTesting.h"

namespace {

using namespace tesselctl;
using tesselctltest::ReadFile;
using Words = std::vector<std::string>;

std::string NameFor(const std::string& word) {
    const Command* command = FindCommand(word);
    return command == nullptr ? "<none>" : std::string(command->name);
}

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

TEST(TesselctlCommands, AWord_RunsTheCommandItBeginsWith) {
    EXPECT_EQ("platform", NameFor("platform"));
    EXPECT_EQ("platform", NameFor("platforms"));
    EXPECT_EQ("update", NameFor("updateNow"));
    EXPECT_EQ("<none>", NameFor("Platform"));
    EXPECT_EQ("<none>", NameFor("platfor"));
    EXPECT_EQ("<none>", NameFor(" platform"));
    EXPECT_EQ("<none>", NameFor(""));
}

TEST(TesselctlCommands, NoName_HidesAnother) {
    for (const Command& command : AllCommands())
        EXPECT_EQ(command.name, FindCommand(command.name)->name);
}

TEST(TesselctlCommands, NoCommandOfTheService_HasTheNameOfALocalOne) {
    for (const LocalCommand& local : LocalCommands())
        EXPECT_EQ("<none>", NameFor(std::string(local.name)));
    EXPECT_EQ("<none>", NameFor("quit"));
}

TEST(TesselctlCommands, EachServer_HasItsCommands) {
    const auto count = [](Server server) {
        return std::count_if(AllCommands().begin(), AllCommands().end(),
                             [&](const Command& command) { return command.server == server; });
    };
    EXPECT_EQ(32, count(Server::kCommand));
    EXPECT_EQ(5, count(Server::kPressure));
    EXPECT_EQ(2, count(Server::kApps));
    EXPECT_EQ(Server::kPressure, FindCommand("listenTablet")->server);
    EXPECT_EQ(Server::kApps, FindCommand("sendDataToChannel")->server);
}

TEST(TesselctlCommands, CommandsWithoutAnAnswer_AreKnown) {
    for (const Command& command : AllCommands()) {
        const bool tablet = command.name == "startTablet" || command.name == "stopTablet";
        const ReplyKind expected = tablet                     ? ReplyKind::kNone
                                   : command.name == "update" ? ReplyKind::kCloses
                                                              : ReplyKind::kAnswer;
        EXPECT_EQ(expected, command.reply) << command.name;
    }
}

// With every run of blanks and line feeds as one blank.
std::string Unwrapped(const std::string& text) {
    std::string plain;
    for (const char c : text) {
        const bool blank = c == ' ' || c == '\n';
        if (!blank || plain.empty() || plain.back() != ' ') plain += blank ? ' ' : c;
    }
    return plain;
}

TEST(TesselctlHelp, TheUsageText_FitsATerminal) {
    std::istringstream lines(UsageText());
    for (std::string line; std::getline(lines, line);)
        EXPECT_LE(line.size(), 80U) << line;
}

TEST(TesselctlHelp, TheUsageText_NamesEveryCommandAndOption) {
    const std::string usage = UsageText();
    for (const Command& command : AllCommands()) {
        EXPECT_TRUE(Contains(usage, "\n  " + std::string(command.name)));
        EXPECT_TRUE(Contains(Unwrapped(usage), std::string(command.help) + ' ')) << command.name;
    }
    for (const OptionHelp& option : AllOptions())
        EXPECT_TRUE(Contains(usage, std::string(option.form)));
    for (const LocalCommand& local : LocalCommands()) {
        EXPECT_TRUE(Contains(usage, "\n  " + std::string(local.name)));
        for (const OptionHelp& option : local.options)
            EXPECT_TRUE(Contains(usage, std::string(option.form)));
    }
}

TEST(TesselctlHelp, EveryCommand_HasATextOfItsOwn) {
    for (const Command& command : AllCommands())
        EXPECT_TRUE(Contains(HelpOn(command.name), std::string(command.help))) << command.name;
    for (const LocalCommand& local : LocalCommands())
        EXPECT_TRUE(Contains(HelpOn(local.name), std::string(local.help))) << local.name;
    EXPECT_EQ("", HelpOn("nonsense"));
    EXPECT_EQ(
        "tesselctl update FOLDER\n"
        "Ends the service, which installs the update in FOLDER on its way out.\n"
        "It has no answer when it succeeds: the service closes the connection.\n"
        "Goes to the command server.\n",
        HelpOn("update"));
}

TEST(TesselctlHelp, TheCommandList_HasALineForEachCommand) {
    const std::string list = CommandList();
    EXPECT_EQ(static_cast<long>(AllCommands().size()), std::count(list.begin(), list.end(), '\n'));
    EXPECT_TRUE(Contains(list, "\ncheckExists PATH\n"));
    EXPECT_TRUE(Contains(list, "\nplatform\n"));
}

// A text as the man page writes it: a hyphen that is typed is marked as one.
std::string Roff(std::string_view text) {
    std::string roff;
    for (const char c : text)
        roff += c == '-' ? "\\-" : std::string(1, c);
    return roff;
}

// "\fBname\fR \fIARGUMENT\fR ..."; dots behind a placeholder stay upright.
std::string Heading(std::string_view name, std::string_view arguments) {
    std::string heading = "\\fB" + Roff(name) + "\\fR";
    std::size_t at = 0;
    while (at < arguments.size()) {
        const std::size_t end = std::min(arguments.find(' ', at), arguments.size());
        std::string argument(arguments.substr(at, end - at));
        const std::size_t dots = argument.find("...");
        const std::string after = dots == std::string::npos ? "" : "...";
        argument.erase(std::min(dots, argument.size()));
        heading += " \\fI" + Roff(argument) + "\\fR" + after;
        at = end + 1;
    }
    return heading;
}

TEST(TesselctlManPage, EveryCommand_StandsThereWithItsArgumentsAndItsSentence) {
    const std::string page = ReadFile(TESSELCTL_DOCUMENTS "/tesselctl.1");
    for (const Command& command : AllCommands()) {
        const std::string paragraph =
            "\n.TP\n" + Heading(command.name, command.arguments) + '\n' + Roff(command.help) + '\n';
        EXPECT_TRUE(Contains(page, paragraph)) << paragraph;
    }
}

TEST(TesselctlManPage, EveryOptionAndLocalCommand_StandsThere) {
    const std::string page = ReadFile(TESSELCTL_DOCUMENTS "/tesselctl.1");
    std::vector<OptionHelp> options = AllOptions();
    for (const LocalCommand& local : LocalCommands()) {
        EXPECT_TRUE(Contains(page, "\\fB" + Roff(local.name) + "\\fR")) << local.name;
        options.insert(options.end(), local.options.begin(), local.options.end());
    }
    for (const OptionHelp& option : options) {
        const std::string form(option.form);
        for (std::size_t at = form.find('-'); at != std::string::npos;) {
            const std::size_t end = std::min(form.find_first_of(" ,", at), form.size());
            EXPECT_TRUE(Contains(page, "\\fB" + Roff(form.substr(at, end - at)) + "\\fR")) << form;
            at = form.find("-", end);
        }
    }
    for (const char* status : {"0", "1", "2", "3", "64", "74"})
        EXPECT_TRUE(Contains(page, std::string("\n.TP\n.B ") + status + "\n")) << status;
}

TEST(TesselctlManPage, NothingStandsThere_ThatTheToolDoesNotKnow) {
    const std::string page = ReadFile(TESSELCTL_DOCUMENTS "/tesselctl.1");
    std::set<std::string> known;
    for (const Command& command : AllCommands())
        known.emplace(command.name);
    const std::size_t from = page.find(".SS Command server");
    const std::size_t to = page.find(".SH EXIT STATUS");
    ASSERT_LT(from, to);
    int headings = 0;
    for (std::size_t at = from; (at = page.find("\n.TP\n\\fB", at)) < to; at++) {
        const std::size_t name = at + 8;
        EXPECT_EQ(1U, known.count(page.substr(name, page.find("\\fR", name) - name)));
        headings++;
    }
    EXPECT_EQ(static_cast<int>(AllCommands().size()), headings);
}

// What the completion offers for a line, of which the last word is being typed.
std::string Offers(const std::string& words) {
    const std::string script = "source " TESSELCTL_DOCUMENTS "/tesselctl.bash; COMP_WORDS=(" +
                               words + "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _tesselctl " +
                               TESSELCTL_PROGRAM +
                               " \"${COMP_WORDS[COMP_CWORD]}\" \"${COMP_WORDS[COMP_CWORD-1]}\";"
                               "echo \" ${COMPREPLY[*]} \"";
    std::string offers;
    std::FILE* const pipe = popen(("bash -c '" + script + "' 2>&1").c_str(), "r");
    char bytes[4096];
    for (std::size_t got; (got = std::fread(bytes, 1, sizeof bytes, pipe)) > 0;)
        offers.append(bytes, got);
    pclose(pipe);
    return offers;
}

TEST(TesselctlCompletion, EveryLocalCommandAndOption_IsOffered) {
    const std::string commands = Offers("tesselctl \"\"");
    for (const LocalCommand& local : LocalCommands()) {
        const std::string name(local.name);
        EXPECT_TRUE(Contains(commands, ' ' + name + ' ')) << commands;
        if (name == "help") continue;
        const std::string options = Offers("tesselctl " + name + " --");
        for (const OptionHelp& option : local.options) {
            const std::string form(option.form.substr(option.form.find("--")));
            EXPECT_TRUE(Contains(options, ' ' + form.substr(0, form.find(' ')) + ' '))
                << name << ": " << options;
        }
    }
}

TEST(TesselctlCompletion, OfAChannel_ListenAndSendAreOffered) {
    EXPECT_EQ(" listen send \n", Offers("tesselctl --home /h channel \"\""));
    EXPECT_EQ("  \n", Offers("tesselctl channel listen \"\""));
}

TEST(TesselctlCompletion, NamesAndTheirCommonBeginning_AreFound) {
    const Words names = {"userCanPerformDockUpdate", "userCanAdministerAirApps",
                         "userCanAdministerNativeApps", "update"};
    EXPECT_EQ(names, NamesBeginning(names, "u"));
    EXPECT_EQ((Words{"update"}), NamesBeginning(names, "up"));
    EXPECT_EQ((Words{}), NamesBeginning(names, "x"));
    EXPECT_EQ("u", CommonBeginning(names));
    EXPECT_EQ("userCan", CommonBeginning(NamesBeginning(names, "us")));
    EXPECT_EQ("userCanAdminister", CommonBeginning(NamesBeginning(names, "userCanA")));
    EXPECT_EQ("", CommonBeginning({}));
}

}  // namespace
