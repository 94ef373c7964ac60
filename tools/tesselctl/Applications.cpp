#include "tesselctl/Applications.h"

#include <optional>

#include "tesselctl/Answer.h"
#include "tesselctl/ExitStatus.h"
#include "tesselctl/Paths.h"
#include "tesselctl/Printable.h"
#include "tesselctl/Progress.h"
#include "tesselctl/Quoting.h"
#include "tesselctl/Report.h"
#include "tesselctl/Session.h"
#include "tesselctl/Terminal.h"
#include "tesselctl/Watch.h"

namespace tesselctl {
namespace {

// One row is one question to the service: its command in each family, and the two answers, which
// begin with the family's name. Only native applications have all of them; the service finds
// applications of both kinds by their identifiers.
struct Question {
    Deed deed;
    const char* air;
    const char* native;
    const char* yes;
    const char* no;
};

constexpr Question kQuestions[] = {
    {Deed::kInstall, "installAirApp", "installNativeApp", "InstallStarted=", "InstallFailed="},
    {Deed::kUpgrade, "upgradeAirApp", "upgradeNativeApp", "UpgradeStarted=", "UpgradeFailed="},
    {Deed::kRemove, "uninstallAirApp", "uninstallNativeApp",
     "UninstallStarted=", "UninstallFailed="},
    {Deed::kStart, "startAirApplication", "startNativeApplication", "IsStarted=", "IsNotStarted="},
    {Deed::kStop, nullptr, "stopNativeApplication", "IsStopped=", "IsNotStopped="},
    {Deed::kIsRunning, nullptr, "isNativeAppRunning", "IsRunning=", "IsNotRunning="},
    {Deed::kIsInstalled, "isAirAppInstalled", "isNativeAppInstalled",
     "IsInstalled=", "IsNotInstalled="},
};

const Question& QuestionOf(Deed deed) {
    for (const Question& question : kQuestions)
        if (question.deed == deed) return question;
    return kQuestions[0];
}

constexpr char kSeeLog[] = "the log of the service may tell why ('tesselctl log')";

bool BeginsWith(const std::string& text, const std::string& beginning) {
    return text.compare(0, beginning.size(), beginning) == 0;
}

class Application {
  public:
    Application(const std::string& home, const Limits& limits, const ApplicationRequest& asked)
        : request(asked),
          shown(Printable(request.id.empty() ? FileNameOf(request.package) : request.id)),
          session(home, Interruptible(limits)) {}

    int Run() {
        switch (request.deed) {
            case Deed::kInstall:
                return Install({"installing", "installation", "was not installed"});
            case Deed::kUpgrade:
                return Install({"upgrading", "upgrade", "was not upgraded"});
            case Deed::kRemove:
                return Remove();
            case Deed::kStart:
                return Start();
            case Deed::kStop:
                return Stop();
            case Deed::kIsRunning:
                return Tell(Ask(Deed::kIsRunning, "asking about"), "is running", "is not running");
            case Deed::kIsInstalled:
                return Tell(IsInstalled(), "is installed", "is not installed");
        }
        return kExitUsage;
    }

  private:
    Limits Interruptible(Limits limits) {
        limits.interruption = watch.AsInterruption();
        return limits;
    }

    // Yes or no; nothing when there is neither, which has been complained about and is in `status`
    // then.
    std::optional<bool> Ask(Deed deed, const char* doing) {
        const Question& question = QuestionOf(deed);
        const bool isAir = request.kind == Kind::kAir && question.air != nullptr;
        std::vector<std::string> words = {isAir ? question.air : question.native, request.name};
        // The service wants a word there, and reads it for AIR applications only.
        words.push_back(request.id.empty() ? request.name : request.id);
        if (deed == Deed::kInstall || deed == Deed::kUpgrade) words.push_back(request.package);
        const Result<std::string> line = QuoteWords(words);
        if (!line.Ok()) {
            status = Report(line.GetProblem(), words[0]);
            return std::nullopt;
        }
        const Result<Answer> answer = Run(line.Value(), doing);
        const std::string family = isAir ? "AirApp" : "NativeApp";
        if (answer.Ok() && answer.Value().word == Word::kSuccess) {
            if (BeginsWith(answer.Value().text, family + question.yes)) return true;
            if (BeginsWith(answer.Value().text, family + question.no)) return false;
        }
        status = Unexpected(answer, words[0]);
        return std::nullopt;
    }

    Result<Answer> Run(const std::string& line, const char* doing) {
        Progress progress(std::string(doing) + ' ' + shown);
        session.WhileWaiting([&] { progress.Tick(); });
        Result<Answer> answer = session.Run(line);
        session.WhileWaiting(nullptr);
        return answer;
    }

    int Unexpected(const Result<Answer>& answer, const std::string& command) {
        if (answer.Ok() && answer.Value().word == Word::kSuccess) {
            Complain(command + " got an answer of another command: " +
                     Printable(OneLine(answer.Value().text, 200)));
            return kExitNoService;
        }
        if (answer.Ok() || answer.GetProblem().trouble != Trouble::kInterrupted)
            return Report(answer, command);
        Complain("no longer waiting for " + command + "; the service goes on with it");
        const int ended = watch.ExitStatus();
        return ended == kExitSuccess ? 128 + SIGINT : ended;
    }

    std::optional<bool> IsInstalled() { return Ask(Deed::kIsInstalled, "asking about"); }

    // An answer to a question.
    int Tell(std::optional<bool> answer, const char* yes, const char* no) {
        if (!answer) return status;
        Say(shown + ' ' + (*answer ? yes : no) + '\n');
        return *answer ? kExitSuccess : kExitNegative;
    }

    int Done(const std::string& outcome) {
        Say(shown + ' ' + outcome + '\n');
        return kExitSuccess;
    }

    int NotDone(const std::string& outcome) {
        Complain(shown + ' ' + outcome);
        return kExitNegative;
    }

    struct InstallTexts {
        const char* doing;
        const char* deed;
        const char* notDone;
    };

    // The outcome is looked for, where that can show it: what the service says of an installation
    // that needed administrator rights need not be true, and that of a dismissed dialog is not.
    int Install(const InstallTexts& texts) {
        const bool isKnown = !request.id.empty();
        const std::optional<bool> before = isKnown ? IsInstalled() : false;
        if (!before) return status;
        const std::optional<bool> said = Ask(request.deed, texts.doing);
        if (!said) return status;
        if (!isKnown) return TellOfUnknown(texts.deed, *said);
        const std::optional<bool> after = IsInstalled();
        if (!after) return status;
        if (!*after) return NotDone(texts.notDone + ("; " + std::string(kSeeLog)));
        return *before ? TellOfKnownBefore(texts.deed, *said) : Done("is installed");
    }

    int TellOfUnknown(const std::string& deed, bool started) {
        const std::string says = "the service says that the " + deed + " of " + shown;
        if (started) {
            Say(says + " was started; whether it is there shows only with its APP-ID\n");
            return kExitSuccess;
        }
        Complain(says + " failed; " + kSeeLog);
        return kExitNegative;
    }

    int TellOfKnownBefore(const std::string& deed, bool started) {
        const std::string outcome = "was there before, and the service says that the " + deed +
                                    (started ? " was started" : " failed") +
                                    "; which of the two versions is there now it cannot tell";
        return started ? Done(outcome) : NotDone(outcome);
    }

    int Remove() {
        const std::optional<bool> before = IsInstalled();
        if (!before) return status;
        if (!*before) return NotDone("is not installed");
        const std::optional<bool> said = Ask(Deed::kRemove, "removing");
        if (!said) return status;
        return *said ? Done("is removed")
                     : NotDone(std::string("was not removed, or not all of it; ") + kSeeLog);
    }

    int Start() {
        const std::optional<bool> said = Ask(Deed::kStart, "starting");
        if (!said) return status;
        if (*said) return Done("is started");
        const std::optional<bool> installed = IsInstalled();
        if (!installed) return status;
        return NotDone(*installed ? "could not be started" : "is not installed");
    }

    int Stop() {
        const std::optional<bool> before = Ask(Deed::kIsRunning, "asking about");
        if (!before) return status;
        if (!*before) return Done("was not running");
        const std::optional<bool> said = Ask(Deed::kStop, "stopping");
        if (!said) return status;
        return *said ? Done("is stopped") : NotDone("could not be stopped");
    }

    const ApplicationRequest& request;
    const std::string shown;  // what people read
    int status = kExitSuccess;
    Watch watch;
    Session session;
};

}  // namespace

int HandleApplication(const std::string& home, const Limits& limits,
                      const ApplicationRequest& request) {
    return Application(home, limits, request).Run();
}

}  // namespace tesselctl
