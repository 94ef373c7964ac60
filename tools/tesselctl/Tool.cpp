#include "tesselctl/Tool.h"

#include <signal.h>

#include <algorithm>

#include "tesselctl/Applications.h"
#include "tesselctl/Channel.h"
#include "tesselctl/ExitStatus.h"
#include "tesselctl/Help.h"
#include "tesselctl/Icon.h"
#include "tesselctl/Log.h"
#include "tesselctl/Options.h"
#include "tesselctl/Paths.h"
#include "tesselctl/Pen.h"
#include "tesselctl/Quoting.h"
#include "tesselctl/Report.h"
#include "tesselctl/Session.h"
#include "tesselctl/Shell.h"
#include "tesselctl/Status.h"
#include "tesselctl/Terminal.h"

namespace tesselctl {
namespace {

Limits LimitsOf(const Options& options) {
    Limits limits;
    if (!options.timeout) return limits;
    limits.answer = *options.timeout;
    // Who wants an answer in a second does not wait five for the handshake.
    if (limits.answer.count() > 0) limits.handshake = std::min(limits.handshake, limits.answer);
    return limits;
}

int ShowHelp(const Options& options) {
    if (options.listNames) {
        Say(CommandList());
        return kExitSuccess;
    }
    if (options.words.empty()) {
        Say(UsageText());
        return kExitSuccess;
    }
    const std::string text = HelpOn(options.words[0]);
    if (text.empty()) {
        Complain("there is no command " + OneLine(options.words[0], 80) +
                 " (see 'tesselctl help')");
        return kExitUsage;
    }
    Say(text);
    return kExitSuccess;
}

// A command without an answer: that the service hangs up in its turn says that it has read it.
int FinishUnanswered(Session& session, const Command& command) {
    std::optional<Answer> refusal;
    session.OnNotice([&](const std::string& text) {
        if (auto answer = ReadAnswer(text)) refusal = std::move(answer);
    });
    if (!session.Close(command.server)) {
        Complain("the service has not taken notice of " + std::string(command.name));
        return kExitNoService;
    }
    if (refusal) return Report(*refusal, command.name);
    Complain(std::string(command.name) +
             " holds for one connection, and that is closed now; use 'tesselctl shell'");
    return kExitSuccess;
}

int Send(const std::string& home, const Options& options) {
    const std::string& name = options.words[0];
    const Result<std::string> line = QuoteWords(options.words);
    if (!line.Ok()) {
        Complain(line.GetProblem().text);
        return ExitStatusOf(line.GetProblem());
    }
    Session session(home, LimitsOf(options));
    const Result<Answer> outcome = session.Run(line.Value());
    const Command* command = FindCommand(name);
    if (outcome.Ok() && command != nullptr && command->reply == ReplyKind::kNone)
        return FinishUnanswered(session, *command);
    return Report(outcome, name);
}

int Act(const Options& options) {
    const std::string userHome = UserHome();
    const std::string home = options.home.value_or(userHome);
    switch (options.action) {
        case Action::kHelp:
            return ShowHelp(options);
        case Action::kVersion:
            Say("tesselctl " TESSELCTL_VERSION "\n");
            return kExitSuccess;
        case Action::kShell:
            return RunShell(home, userHome, LimitsOf(options));
        case Action::kStatus:
            return ShowStatus(home, LimitsOf(options));
        case Action::kLog:
            return ShowLog(home, options.log);
        case Action::kPen:
            return ShowPen(home, LimitsOf(options), options.pen);
        case Action::kChannel:
            return UseChannel(home, LimitsOf(options), options.channel);
        case Action::kApplication:
            return HandleApplication(home, LimitsOf(options), options.application);
        case Action::kIcon:
            return SaveIcon(home, LimitsOf(options), options.icon);
        case Action::kSend:
            break;
    }
    return Send(home, options);
}

}  // namespace

int RunTool(const std::vector<std::string>& arguments) {
    // A service or a reader that goes away shows as an error of the call that meets it.
    signal(SIGPIPE, SIG_IGN);
    const ParsedOptions parsed = ParseOptions(arguments);
    if (!parsed.error.empty()) {
        Complain(parsed.error);
        return kExitUsage;
    }
    const int status = Act(parsed.options);
    return EverythingSaid() ? status : static_cast<int>(kExitOutput);
}

}  // namespace tesselctl
