#include "tesselctl/Channel.h"

#include <optional>

#include "tesselctl/ExitStatus.h"
#include "tesselctl/Printable.h"
#include "tesselctl/Progress.h"
#include "tesselctl/Quoting.h"
#include "tesselctl/Report.h"
#include "tesselctl/Session.h"
#include "tesselctl/Terminal.h"
#include "tesselctl/Watch.h"

namespace tesselctl {
namespace {

constexpr std::string_view kForwarded = "ForwardDataToChannel ";
constexpr std::string_view kRegistered = "BroadcastRegisteredChannel=";
constexpr std::string_view kUnregistered = "BroadcastUnRegisteredChannel=";

// The service gives this back with its answer.
constexpr const char* kTag = "1";

std::optional<std::string_view> Behind(std::string_view beginning, std::string_view text) {
    if (text.substr(0, beginning.size()) != beginning) return std::nullopt;
    return text.substr(beginning.size());
}

class Channel {
  public:
    Channel(const std::string& home, const Limits& limits, const ChannelRequest& asked)
        : request(asked), session(home, Interruptible(limits)) {}

    int Listen() {
        session.OnNotice([this](const std::string& text) { Tell(text); });
        if (const auto status = Register()) return *status;
        if (OutputIsSeen())
            Complain("this is channel " + Printable(request.name) + " now; Control-C ends it");
        for (;;) {
            const Incoming incoming = session.Next(Server::kApps, Deadline::Now());
            switch (incoming.status) {
                case ReadStatus::kMessage:
                    Tell(incoming.message.text);
                    if (isBroken || watch.Stopped()) return watch.ExitStatus();
                    break;
                case ReadStatus::kTimedOut:
                    watch.Wait(session.PollDescriptor(Server::kApps), Deadline::In({}));
                    if (watch.Stopped()) return watch.ExitStatus();
                    break;
                case ReadStatus::kInterrupted:
                    return watch.ExitStatus();
                case ReadStatus::kClosed:
                    Complain("the service has gone away");
                    return kExitNoService;
                case ReadStatus::kTooLong:
                    Complain(
                        "what the apps-communication server sends has no end: it does not "
                        "speak the service's language");
                    return kExitNoService;
            }
        }
    }

    int Send() {
        // What is sent to one's own name comes back if nobody else has had it for longer.
        bool cameBack = false;
        session.OnNotice([&](const std::string& text) {
            if (Behind(kForwarded, text)) cameBack = true;
        });
        const Result<std::string> line =
            QuoteWords({"sendDataToChannel", request.target, request.data, kTag});
        if (!line.Ok()) return Refuse(line.GetProblem());
        if (const auto status = Register()) return *status;
        const Result<Answer> answer = Ask(line.Value());
        if (IsAnswer(answer, std::string("DataSentToChannelError=") + kTag)) {
            Complain("channel " + Printable(request.target) +
                     " did not get it: nobody has registered it, or whoever has does not read");
            return kExitNegative;
        }
        if (!IsAnswer(answer, std::string("DataSentToChannel=") + kTag)) return Unexpected(answer);
        if (!cameBack) return kExitSuccess;
        Complain("nobody but tesselctl itself has registered channel " + Printable(request.target));
        return kExitNegative;
    }

  private:
    Limits Interruptible(Limits limits) {
        limits.interruption = watch.AsInterruption();
        return limits;
    }

    Result<Answer> Ask(const std::string& line) {
        Progress progress("waiting for the service");
        session.WhileWaiting([&] { progress.Tick(); });
        Result<Answer> answer = session.Run(line);
        session.WhileWaiting(nullptr);
        return answer;
    }

    // The exit status when it did not go well.
    std::optional<int> Register() {
        const Result<std::string> line = QuoteWords({"registerChannel", request.name});
        if (!line.Ok()) return Refuse(line.GetProblem());
        const Result<Answer> answer = Ask(line.Value());
        if (IsAnswer(answer, "ChannelRegistered=true")) return std::nullopt;
        return Unexpected(answer);
    }

    static bool IsAnswer(const Result<Answer>& answer, const std::string& text) {
        return answer.Ok() && answer.Value().word == Word::kSuccess && answer.Value().text == text;
    }

    static int Refuse(const Problem& problem) {
        Complain(problem.text);
        return ExitStatusOf(problem);
    }

    int Unexpected(const Result<Answer>& answer) {
        if (!answer.Ok()) {
            if (answer.GetProblem().trouble == Trouble::kInterrupted) return watch.ExitStatus();
            return Refuse(answer.GetProblem());
        }
        if (answer.Value().word == Word::kSuccess) {
            Complain("the service gives an answer of another command: " +
                     Printable(OneLine(answer.Value().text, 200)));
            return kExitNoService;
        }
        return Report(answer, "channel");
    }

    void Tell(const std::string& text) {
        if (const auto data = Behind(kForwarded, text)) {
            const std::string line = OutputIsSeen() ? Printable(*data) : std::string(*data);
            if (!isBroken && !watch.Say(line + '\n')) isBroken = true;
        } else if (const auto came = Behind(kRegistered, text)) {
            Complain("channel " + Printable(*came) + " was registered");
        } else if (const auto went = Behind(kUnregistered, text)) {
            Complain("channel " + Printable(*went) + " has gone");
        }
    }

    const ChannelRequest& request;
    bool isBroken = false;  // nobody reads any more, or it is time to stop
    Watch watch;
    Session session;
};

}  // namespace

int UseChannel(const std::string& home, const Limits& limits, const ChannelRequest& request) {
    Channel channel(home, limits, request);
    return request.target.empty() ? channel.Listen() : channel.Send();
}

}  // namespace tesselctl
