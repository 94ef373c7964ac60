#include "loads/ChannelLoad.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <vector>

#include "loads/Half.h"
#include "support/Waiting.h"

namespace {

// Fewer than the service lets wait: nobody is turned away by the system.
constexpr int kMostConnecting = 4;
constexpr std::size_t kMostQuestions = 4;
constexpr int kMostSeconds = 30;
constexpr char kForward[] = "ForwardDataToChannel ";
constexpr char kRegistered[] = "BroadcastRegisteredChannel=";
constexpr char kGone[] = "BroadcastUnRegisteredChannel=";

bool BeginsWith(const std::string& text, const std::string& beginning) {
    return text.compare(0, beginning.size(), beginning) == 0;
}

// What message NUMBER holds besides its names; most are short.
std::string Filling(std::uint64_t number) {
    const std::size_t length = number % 97 == 0 ? 4000 : number % 7 * 20;
    std::string filling(length, ' ');
    for (std::size_t i = 0; i < length; ++i) {
        filling[i] = static_cast<char>('A' + (number * 31 + i * i) % 26);
    }
    return filling;
}

std::string Content(std::uint64_t sender, std::uint64_t target, std::uint64_t number) {
    return std::to_string(sender) + ">" + std::to_string(target) + ":" + std::to_string(number) +
           ":" + Filling(number);
}

}  // namespace

void ChannelLoad::Step() {
    if (Clock::now() > nextHalf) {
        holding = true;
        if (IsQuiet()) {
            BreakAMessageOff();
            holding = false;
            nextHalf = Clock::now() + random.Milliseconds(2000, 15000);
        }
    }
    if (!holding) {
        Come();
        SendMessages();
    }
    Turn(10);
    CheckDeadlines();
}

void ChannelLoad::Turn(int milliseconds) {
    std::vector<pollfd> waited;
    std::vector<Application*> theirs;
    for (Application& application : applications) {
        const bool writes =
            application.state == State::kConnecting || application.line.HasMoreToSend();
        waited.push_back(
            {application.line.Number(), static_cast<short>(writes ? POLLIN | POLLOUT : POLLIN), 0});
        theirs.push_back(&application);
    }
    poll(waited.data(), waited.size(), milliseconds);
    for (std::size_t i = 0; i < waited.size(); ++i) {
        Application& application = *theirs[i];
        if (waited[i].revents == 0) {
            continue;
        }
        if (application.state == State::kConnecting) {
            FinishConnecting(application);
            continue;
        }
        if ((waited[i].revents & POLLOUT) != 0 && !application.line.SendTheRest()) {
            throw Failed(application.name + ": the service takes nothing any more");
        }
        ReadFrom(application);
    }
    const Clock::time_point now = Clock::now();
    for (Application& application : applications) {
        if (application.state == State::kRegistered && application.leavesAt < now && !holding) {
            SendAway(application, random.Of(std::vector<Farewell>{
                                      Farewell::kClose, Farewell::kReset, Farewell::kHalfClose}));
        }
    }
    applications.remove_if([](const Application& one) { return one.state == State::kGone; });
}

void ChannelLoad::Come() {
    while (connecting < kMostConnecting &&
           applications.size() < static_cast<std::size_t>(world.options.channelClients) &&
           world.doors.TryEnter()) {
        ++connecting;
        Application& made = applications.emplace_back();
        made.number = ++lastApplication;
        made.name = "a" + std::to_string(made.number);
        made.since = Clock::now();
        Descriptor socket = world.sandbox.NewSocket();
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<in_port_t>(world.service->Keys().appsPort));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
                0 &&
            errno != EINPROGRESS) {
            throw Failed("an application cannot connect");
        }
        made.line = Line(std::move(socket));
    }
}

void ChannelLoad::FinishConnecting(Application& application) {
    int error = 0;
    socklen_t length = sizeof error;
    getsockopt(application.line.Number(), SOL_SOCKET, SO_ERROR, &error, &length);
    if (error != 0) {
        throw Failed(application.name + " could not connect");
    }
    Register(application);
}

void ChannelLoad::Register(Application& application) {
    application.state = State::kRegistering;
    application.asked.push_back({Clock::now()});
    for (Application& other : applications) {
        if (other.state == State::kRegistered) {
            other.news.Expect(News::What::kRegistered, application.name);
        } else if (&other != &application) {
            // Whoever of the two is the first.
            other.news.Allow(News::What::kRegistered, application.name);
            application.news.Allow(News::What::kRegistered, other.name);
        }
    }
    for (const auto& [time, formerName] : departed) {
        application.news.Allow(News::What::kGone, formerName);
    }
    application.line.Send("registerChannel " + application.name + "|");
}

ChannelLoad::Application* ChannelLoad::AnyRegistered() {
    if (applications.empty()) {
        return nullptr;
    }
    auto chosen = applications.begin();
    std::advance(chosen, random.Between(0, static_cast<int>(applications.size()) - 1));
    return chosen->state == State::kRegistered ? &*chosen : nullptr;
}

void ChannelLoad::SendMessages() {
    const Clock::time_point now = Clock::now();
    const double allowed =
        std::chrono::duration<double>(now - lastAllowance).count() * world.options.channelRate;
    lastAllowance = now;
    mayBeSent = std::min(mayBeSent + allowed, world.options.channelRate / 2.0);
    for (; mayBeSent >= 1; mayBeSent -= 1) {
        if (Application* const sender = AnyRegistered()) {
            SendMessage(*sender);
        }
    }
}

void ChannelLoad::SendMessage(Application& sender) {
    Application* const target = AnyRegistered();
    if (target == nullptr || sender.asked.size() >= kMostQuestions) {
        return;
    }
    const ChannelLedger::Number message = ++lastMessage;
    sender.asked.push_back({Clock::now(), target->number, message});
    ledger.Sent(sender.number, target->number, message);
    sender.line.Send("sendDataToChannel " + target->name + " " +
                     Content(sender.number, target->number, message) + " t" +
                     std::to_string(message) + "|");
}

void ChannelLoad::ReadFrom(Application& application) {
    const bool goesOn = application.line.Read();
    while (application.state != State::kGone) {
        const std::optional<std::string> message = application.line.Next();
        if (!message) {
            break;
        }
        Understand(application, *message);
    }
    if (goesOn) {
        return;
    }
    if (application.state != State::kLeaving) {
        throw Failed(application.name + ": the service closed the connection");
    }
    ledger.TargetHasReadAll(application.number);
    IsGone(application);
}

void ChannelLoad::Understand(Application& application, const std::string& message) {
    if (BeginsWith(message, kForward)) {
        TakeMessage(application, message.substr(sizeof kForward - 1));
    } else if (BeginsWith(message, kRegistered)) {
        application.news.Told(News::What::kRegistered, message.substr(sizeof kRegistered - 1));
    } else if (BeginsWith(message, kGone)) {
        application.news.Told(News::What::kGone, message.substr(sizeof kGone - 1));
    } else if (!BeginsWith(message, "PenData.")) {
        // Whoever has the number of a pressure client before gets these.
        TakeAnswer(application, message);
    }
}

void ChannelLoad::TakeAnswer(Application& application, const std::string& answer) {
    if (application.asked.empty()) {
        throw Failed(application.name + " was answered without having asked: " + answer);
    }
    const Question question = application.asked.front();
    application.asked.pop_front();
    world.tally.Took("channels", Clock::now() - question.asked);
    if (question.message == 0) {
        if (answer != "Success ChannelRegistered=true") {
            throw Failed(application.name + " asked to be registered and was answered " + answer);
        }
        application.state = State::kRegistered;
        application.leavesAt = Clock::now() + random.Milliseconds(500, kMostSeconds * 1000);
        --connecting;
        world.doors.Leave();
        world.tally.Count("channel clients");
        return;
    }
    const std::string tag = "t" + std::to_string(question.message);
    const bool accepted = answer == "Success DataSentToChannel=" + tag;
    if (!accepted && answer != "Success DataSentToChannelError=" + tag) {
        throw Failed(application.name + " asked with the tag " + tag + " and was answered " +
                     answer);
    }
    ledger.Answered(application.number, question.target, question.message, accepted);
}

void ChannelLoad::TakeMessage(Application& application, const std::string& message) {
    // "aSENDER SENDER>TARGET:NUMBER:FILLING"
    const std::size_t blank = message.find(' ');
    const std::size_t arrow = message.find('>');
    const std::size_t colon = message.find(':');
    if (blank == std::string::npos || arrow == std::string::npos || colon == std::string::npos) {
        throw Failed(application.name + " got something that nobody sent: " + message);
    }
    const std::uint64_t sender = std::stoull(message.substr(blank + 1));
    const std::uint64_t number = std::stoull(message.substr(colon + 1));
    if (message.substr(0, blank) != "a" + std::to_string(sender) ||
        message.substr(blank + 1) != Content(sender, application.number, number)) {
        throw Failed(application.name +
                     " got what is not as it was sent, or somebody else's: " + message);
    }
    ledger.Arrived(sender, application.number, number);
}

void ChannelLoad::SendAway(Application& application, Farewell farewell) {
    const bool wasRegistered = application.state == State::kRegistered;
    for (Application& other : applications) {
        if (&other == &application) {
            continue;
        }
        if (other.state == State::kRegistered && wasRegistered) {
            other.news.Expect(News::What::kGone, application.name);
        } else {
            other.news.Allow(News::What::kGone, application.name);
        }
    }
    departed.emplace_back(Clock::now(), application.name);
    ledger.TargetIsLeaving(application.number);
    application.since = Clock::now();
    switch (farewell) {
        case Farewell::kClose:
            world.tally.Count("fault: clients that closed with answers under way");
            application.line.Close();
            IsGone(application);
            break;
        case Farewell::kReset:
            world.tally.Count("fault: clients that reset the connection");
            application.line.Reset();
            IsGone(application);
            break;
        case Farewell::kHalfClose:
            world.tally.Count("fault: clients that closed one direction");
            application.line.ShutDownSending();
            application.state = State::kLeaving;
            break;
    }
}

void ChannelLoad::IsGone(Application& application) {
    ledger.SenderIsGone(application.number);
    ledger.TargetIsGone(application.number);
    application.line.Close();
    application.state = State::kGone;
}

bool ChannelLoad::IsQuiet() const {
    for (const Application& application : applications) {
        if (application.state != State::kRegistered || !application.asked.empty()) {
            return false;
        }
    }
    return true;
}

void ChannelLoad::AskAndExpect(Application& application, const std::string& question,
                               const std::function<bool(const std::string&)>& isRight) {
    application.line.Send(question);
    const Deadline deadline(world.options.patience);
    for (;;) {
        const bool goesOn = application.line.Read();
        while (const std::optional<std::string> message = application.line.Next()) {
            if (BeginsWith(*message, kForward) || BeginsWith(*message, "Broadcast") ||
                BeginsWith(*message, "PenData.")) {
                Understand(application, *message);
            } else if (isRight(*message)) {
                return;
            } else {
                throw Failed("around a broken message, \"" + question + "\" was answered " +
                             *message);
            }
        }
        if (!goesOn || deadline.Passed()) {
            throw Failed("around a broken message, \"" + question + "\" was not answered");
        }
        application.line.WaitForInput(deadline.Milliseconds());
    }
}

// Nobody else sends anything on this port meanwhile, so that what is broken off meets the bar that
// is sent for it.
void ChannelLoad::BreakAMessageOff() {
    Application* const victim = AnyRegistered();
    Application* const healer = AnyRegistered();
    if (victim == nullptr || healer == nullptr || victim == healer) {
        return;
    }
    const Half half = Half::OfChannelMessage(random);
    // The answer says that the half has been read as well.
    AskAndExpect(*victim, "hello|" + half.Text(),
                 [](const std::string& answer) { return answer == "Success "; });
    SendAway(*victim, random.Of(std::vector<Farewell>{Farewell::kClose, Farewell::kReset,
                                                      Farewell::kHalfClose}));
    AskAndExpect(*healer, "|",
                 [&](const std::string& answer) { return half.IsRightAnswer(answer); });
    world.tally.Count("fault: messages broken off, channels");
}

void ChannelLoad::CheckDeadlines() {
    const Clock::time_point now = Clock::now();
    if (now - lastCheck < std::chrono::milliseconds(500)) {
        return;
    }
    lastCheck = now;
    const std::chrono::seconds patience = world.options.patience;
    for (const Application& application : applications) {
        const bool waits =
            application.state == State::kConnecting || application.state == State::kLeaving;
        if (waits && now - application.since > patience) {
            throw Failed(application.name + (application.state == State::kConnecting
                                                 ? ": no connection came about"
                                                 : ": the service does not close its side"));
        }
        if (!application.asked.empty() && now - application.asked.front().asked > patience) {
            throw Failed(application.name + " has not been answered in " +
                         std::to_string(patience.count()) + " s");
        }
        if (application.state == State::kRegistered) {
            application.news.NothingIsOverdue(application.name, patience);
        }
    }
    while (!departed.empty() && now - departed.front().first > patience) {
        departed.pop_front();
    }
    ledger.NothingIsOverdue(patience);
    world.tally.Set("channel messages accepted", ledger.Accepted());
    world.tally.Set("channel messages delivered", ledger.Delivered());
}

void ChannelLoad::PartWithAll() {
    // All that was accepted has to arrive, so the first to go waits for the last answer.
    holding = true;
    const Deadline deadline(world.options.patience * 2);
    while (!IsQuiet() && !deadline.Passed()) {
        Turn(10);
        CheckDeadlines();
    }
    // What was accepted last may still be under way.
    while (ledger.IsAnythingUnderWay() && !deadline.Passed()) {
        Turn(10);
    }
    if (deadline.Passed()) {
        throw Failed("the last answers do not come");
    }
    for (Application& application : applications) {
        SendAway(application, Farewell::kHalfClose);
    }
    while (!applications.empty() && !deadline.Passed()) {
        Turn(10);
        CheckDeadlines();
    }
    holding = false;
}
