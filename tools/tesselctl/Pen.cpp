#include "tesselctl/Pen.h"

#include <algorithm>
#include <memory>
#include <optional>

#include "tesselctl/ExitStatus.h"
#include "tesselctl/PenDisplay.h"
#include "tesselctl/Plot.h"
#include "tesselctl/Png.h"
#include "tesselctl/Printable.h"
#include "tesselctl/Quoting.h"
#include "tesselctl/ReplaceFile.h"
#include "tesselctl/Report.h"
#include "tesselctl/Session.h"
#include "tesselctl/Strokes.h"
#include "tesselctl/Terminal.h"
#include "tesselctl/Watch.h"

namespace tesselctl {
namespace {

constexpr Server kPressure = Server::kPressure;

// The service wants a name with the process and does not look at it.
constexpr const char* kName = "tesselctl";

// What the service has said last when it found the process and was not let in.
constexpr std::string_view kNotLetIn = "PressureTap: Tap port is null";

using Clock = std::chrono::steady_clock;

Result<std::string> Line(const char* command, const std::string& application) {
    return QuoteWords({command, kName, application});
}

// As it came.
std::string BytesOf(const Message& message) {
    if (message.framed) return message.text + '|';
    const bool isPressure = message.text[0] >= '0' && message.text[0] <= '9';
    return message.text + (isPressure ? '\0' : ' ');
}

// The conversation with the pressure server, from the request for pen data to the farewell.
//
// Nothing is said that harms others who get pen data: they are asked for only once their process is
// tapped, because that takes them from whoever has them; and a tap that was refused is not removed,
// because that would be somebody else's.
class PenData {
  public:
    PenData(const std::string& home, const Limits& limits, const PenRequest& asked)
        : request(asked), session(home, Patient(limits)) {
        if (request.form != PenForm::kRaw) display = MakePenDisplay(request.form);
    }

    // The exit status; nothing when pen data come.
    std::optional<int> Begin() {
        const Result<std::string> line = Line("listenTablet", request.application);
        if (!line.Ok()) return Report(line.GetProblem(), {});
        if (const auto problem = session.Open(kPressure)) {
            if (problem->trouble == Trouble::kInterrupted) return watch.ExitStatus();
            return Report(*problem, {});
        }
        hasAsked = true;
        session.Send(kPressure, line.Value() + '|');
        const std::optional<int> refused = AwaitAnswer(Deadline::In(answerTime));
        if (!refused) {
            hasStarted = true;
            session.Send(kPressure, "startTablet|");
        }
        return refused;
    }

    // Shows what comes until the end; the exit status.
    int Follow() {
        std::optional<int> status;
        while (!status) {
            status = TakeWhatThereIs();
            if (display && !display->Show(watch, Clock::now())) status = watch.ExitStatus();
            if (status) break;
            const Deadline next = display ? display->Next() : Deadline::In({});
            switch (watch.Wait(session.PollDescriptor(kPressure), next)) {
                case Watch::Woken::kStopped:
                    status = watch.ExitStatus();
                    break;
                case Watch::Woken::kResized:
                    if (display) display->Forget();
                    break;
                case Watch::Woken::kReadable:
                case Watch::Woken::kTime:
                    break;
            }
        }
        if (display) display->End();
        if (!trouble.empty()) Complain(trouble);
        return *status;
    }

    void Leave() {
        const Result<std::string> line = Line("stopListenTablet", request.application);
        if (hasStarted) session.Send(kPressure, "stopTablet|");
        // Also when there was no answer: there may still be a tap.
        if (hasAsked && line.Ok()) session.Send(kPressure, line.Value() + '|');
        session.Close(kPressure);
    }

    const Strokes& Drawn() const { return strokes; }
    Watch& Watching() { return watch; }

  private:
    // The pressure server is never busy with anything long, so an answer that takes longer than a
    // handshake does not come.
    Limits Patient(Limits limits) {
        limits.answer = answerTime = std::min(limits.answer, limits.handshake);
        limits.interruption = watch.AsInterruption();
        return limits;
    }

    std::optional<int> AwaitAnswer(Deadline deadline) {
        for (;;) {
            const Incoming incoming = session.Next(kPressure, deadline);
            switch (incoming.status) {
                case ReadStatus::kMessage:
                    break;
                case ReadStatus::kInterrupted:
                    return watch.ExitStatus();
                case ReadStatus::kTimedOut:
                    Complain(
                        "the pressure server does not answer: it has as many clients as it "
                        "can serve");
                    return kExitNoService;
                case ReadStatus::kClosed:
                case ReadStatus::kTooLong:
                    return Lost(incoming.status);
            }
            const Message& message = incoming.message;
            if (const auto answer = message.framed ? ReadAnswer(message.text) : std::nullopt)
                return StatusOf(*answer);
            if (request.form == PenForm::kRaw && !watch.Say(BytesOf(message)))
                return watch.ExitStatus();
            TakeEvent(message.text);
        }
    }

    std::optional<int> StatusOf(const Answer& answer) {
        if (answer.word == Word::kSuccess) return std::nullopt;
        hasAsked = false;
        if (answer.word != Word::kFailure) return Report(answer, "listenTablet");
        const std::string name = Printable(request.application);
        if (answer.text.compare(0, kNotLetIn.size(), kNotLetIn) == 0)
            Complain(name + " runs, but does not let the service watch its pen");
        else
            Complain("no application called " + name + " runs");
        return kExitNegative;
    }

    int Lost(ReadStatus status) {
        Complain(LossText(status));
        return kExitNoService;
    }

    static std::string LossText(ReadStatus status) {
        return status == ReadStatus::kTooLong
                   ? "what the pressure server sends has no end: it does not speak the service's "
                     "language"
                   : "the service has gone away";
    }

    // A turn, so that a flood keeps nobody from stopping it. The exit status when it is the end.
    std::optional<int> TakeWhatThereIs() {
        constexpr int kPiecesInATurn = 16;
        for (int piece = 0; piece < kPiecesInATurn; piece++) {
            const Incoming incoming = session.NextBytes(kPressure, Deadline::Now());
            switch (incoming.status) {
                case ReadStatus::kMessage:
                    break;
                case ReadStatus::kTimedOut:
                    return std::nullopt;
                case ReadStatus::kInterrupted:
                    return watch.ExitStatus();
                case ReadStatus::kClosed:
                case ReadStatus::kTooLong:
                    trouble = LossText(incoming.status);
                    return kExitNoService;
            }
            if (const auto status = TakeBytes(incoming.message.text)) return status;
        }
        return std::nullopt;
    }

    std::optional<int> TakeBytes(const std::string& bytes) {
        constexpr std::size_t kLongestMessage = 1 << 20;
        if (request.form == PenForm::kRaw && !watch.Say(bytes)) return watch.ExitStatus();
        reader.Append(bytes);
        while (const auto message = reader.Next())
            TakeEvent(message->text);
        if (reader.PendingSize() <= kLongestMessage) return std::nullopt;
        trouble = LossText(ReadStatus::kTooLong);
        return kExitNoService;
    }

    void TakeEvent(const std::string& message) {
        const PenEvent event = ReadPenEvent(message);
        if (display) display->Take(event, Clock::now());
        if (!request.plot.empty()) strokes.Take(event);
    }

    const PenRequest& request;
    std::chrono::milliseconds answerTime{0};
    Watch watch;
    Session session;
    bool hasAsked = false;  // and has not been refused
    bool hasStarted = false;
    std::unique_ptr<PenDisplay> display;  // none when bytes are shown
    MessageReader reader;
    Strokes strokes;
    std::string trouble;  // to be told when the terminal is free again
};

int Plot(const Strokes& strokes, const std::string& file, Watch& watch) {
    if (strokes.All().empty()) {
        Complain("nothing was drawn, so there is no " + Printable(file));
        return kExitNegative;
    }
    if (strokes.IsFull())
        Complain("only the first " + std::to_string(Strokes::kMostPoints) + " points are drawn");
    const std::optional<Canvas> picture =
        DrawStrokes(strokes.All(), [&] { return !watch.StoppedAgain(); });
    if (!picture) {
        Complain(Printable(file) + " was not finished");
        return kExitNegative;
    }
    const std::string why =
        ReplaceFile(file, [&](std::FILE* to) { return WritePng(*picture, to); });
    if (why.empty()) return kExitSuccess;
    Complain("cannot write " + Printable(file) + ": " + why);
    return kExitOutput;
}

}  // namespace

int ShowPen(const std::string& home, const Limits& limits, const PenRequest& request) {
    if (!request.plot.empty()) {
        const std::string why = WhyNotReplaceable(request.plot);
        if (!why.empty()) {
            Complain("cannot write " + Printable(request.plot) + ": " + why);
            return kExitOutput;
        }
    }
    PenData data(home, limits, request);
    const std::optional<int> refused = data.Begin();
    const int status = refused ? *refused : data.Follow();
    data.Leave();
    if (refused || request.plot.empty()) return status;
    const int plotted = Plot(data.Drawn(), request.plot, data.Watching());
    return status == kExitSuccess ? plotted : status;
}

}  // namespace tesselctl
