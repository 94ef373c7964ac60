#include "tesselctl/Shell.h"

#include <unistd.h>

#include <iostream>
#include <memory>

#include "tesselctl/ExitStatus.h"
#include "tesselctl/Help.h"
#include "tesselctl/History.h"
#include "tesselctl/LineEditor.h"
#include "tesselctl/Quoting.h"
#include "tesselctl/Report.h"
#include "tesselctl/Session.h"
#include "tesselctl/Signals.h"
#include "tesselctl/Terminal.h"

namespace tesselctl {
namespace {

constexpr std::array<Server, 3> kServers = {Server::kCommand, Server::kPressure, Server::kApps};
constexpr std::size_t kLongestNotice = 4000;

// What a line asks of the shell itself.
enum class Wish { kNothing, kQuit, kHelp, kSend };

Wish WishOf(const std::string& line) {
    if (line.find_first_not_of(' ') == std::string::npos) return Wish::kNothing;
    const std::string word = FirstWord(line);
    if (word == "quit") return Wish::kQuit;
    return word == "help" ? Wish::kHelp : Wish::kSend;
}

void Help(const std::string& line) {
    const std::size_t topicAt = line.find_first_not_of(' ', line.find("help") + 4);
    if (topicAt == std::string::npos) {
        Say(ShellHelp());
        return;
    }
    const std::string topic = FirstWord(line.substr(topicAt));
    const std::string text = HelpOn(topic);
    if (text.empty())
        Complain("there is no command " + OneLine(topic, 80));
    else
        Say(text);
}

// Runs one line of any kind; the exit status of what it did. False for `goOn` when it was the last.
int RunLine(Session& session, const std::string& line, bool& goOn) {
    switch (WishOf(line)) {
        case Wish::kNothing:
            return kExitSuccess;
        case Wish::kQuit:
            goOn = false;
            return kExitSuccess;
        case Wish::kHelp:
            Help(line);
            return kExitSuccess;
        case Wish::kSend:
            break;
    }
    const std::string why = WhyUnsendable(line, "the line");
    if (!why.empty()) {
        Complain(why);
        return kExitUsage;
    }
    const std::string name = FirstWord(line);
    const Result<Answer> answer = session.Run(line);
    if (!answer.Ok() && answer.GetProblem().trouble == Trouble::kInterrupted) {
        Say("\n");  // behind the ^C that the terminal shows
        Complain("no longer waiting for " + OneLine(name, 80) + "; the service may still be at it");
        return kExitNoService;
    }
    return Report(answer, name);
}

int RunPiped(const std::string& home, const Limits& limits) {
    Session session(home, limits);
    session.OnLoss([](Server server) {
        Complain("the " + std::string(NameOf(server)) +
                 " has closed the connection; connecting anew");
    });
    int status = kExitSuccess;
    bool goOn = true;
    for (std::string line; goOn && std::getline(std::cin, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        // An empty line or "quit" does not change how the run ends.
        const bool counts = WishOf(line) == Wish::kSend;
        const int lineStatus = RunLine(session, line, goOn);
        if (counts) status = lineStatus;
    }
    return status;
}

// The shell on a terminal.
class Prompt {
  public:
    Prompt(const std::string& home, const std::string& userHome, const Limits& limits)
        : session(home, Interruptible(limits)),
          history(HistoryPath(userHome)),
          editor("tesselctl> ", CommandNames(), signals, [this] { return Connections(); }) {
        session.OnNotice([this](const std::string& text) {
            editor.Interpose("* " + OneLine(text, kLongestNotice) + '\n');
        });
        session.OnLoss([this](Server server) {
            editor.Interpose("tesselctl: the " + std::string(NameOf(server)) +
                             " has closed the connection; the next command connects anew\n");
        });
        for (const std::string& line : history.Load())
            editor.Remember(line);
    }

    int Run() {
        Greet();
        for (bool goOn = true; goOn && endedBy == 0;) {
            // What came in one piece with an answer does not wake the prompt any more.
            for (const Server server : kServers)
                session.Receive(server);
            const Typed typed = editor.Read();
            endedBy = editor.EndedBy();
            if (typed.kind == TypedKind::kEnd) break;
            if (typed.kind == TypedKind::kDiscarded) continue;
            if (WishOf(typed.line) != Wish::kNothing) Remember(typed.line);
            RunLine(session, typed.line, goOn);
        }
        return endedBy == 0 ? static_cast<int>(kExitSuccess) : 128 + endedBy;
    }

  private:
    void Remember(const std::string& line) {
        if (line == lastLine) return;
        editor.Remember(line);
        history.Append(line);
        lastLine = line;
    }

    static std::vector<std::string> CommandNames() {
        std::vector<std::string> names;
        for (const Command& command : AllCommands())
            names.emplace_back(command.name);
        names.emplace_back("help");
        names.emplace_back("quit");
        return names;
    }

    Limits Interruptible(Limits limits) {
        limits.interruption = {signals.PollDescriptor(), [this] { return StopsWaiting(); }};
        return limits;
    }

    // While a command runs: whether one of the signals that have come ends the wait.
    bool StopsWaiting() {
        bool stops = false;
        while (const std::optional<int> signal = signals.Take()) {
            if (*signal == SIGTERM || *signal == SIGHUP) endedBy = *signal;
            if (*signal == SIGINT || endedBy != 0) stops = true;
        }
        return stops;
    }

    std::vector<LineEditor::Watched> Connections() {
        std::vector<LineEditor::Watched> open;
        for (const Server server : kServers)
            if (const int descriptor = session.PollDescriptor(server); descriptor != -1)
                open.push_back({descriptor, [this, server] { session.Receive(server); }});
        return open;
    }

    void Greet() {
        if (const auto problem = session.Open(Server::kCommand)) {
            Complain(problem->text);
            Say("The next command tries again. 'help' lists the commands, 'quit' leaves.\n");
            return;
        }
        Say("Connected. 'help' lists the commands, 'quit' leaves.\n");
    }

    std::string lastLine;
    int endedBy = 0;  // the signal that asked the shell to go
    Signals signals;
    Session session;
    History history;
    LineEditor editor;
};

}  // namespace

int RunShell(const std::string& home, const std::string& userHome, const Limits& limits) {
    if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0) return RunPiped(home, limits);
    return Prompt(home, userHome, limits).Run();
}

}  // namespace tesselctl
