#include "tesselctl/Session.h"

#include <cstring>

#include "tesselctl/Handshake.h"
#include "tesselctl/Quoting.h"

namespace tesselctl {
namespace {

std::string Seconds(std::chrono::milliseconds time) {
    std::string text = std::to_string(time.count() / 1000);
    if (const auto rest = time.count() % 1000; rest != 0) {
        std::string digits = std::to_string(1000 + rest).substr(1);
        digits.erase(digits.find_last_not_of('0') + 1);
        text += '.' + digits;
    }
    return text + (text == "1" ? " second" : " seconds");
}

std::string Port(int port) {
    return "port " + std::to_string(port);
}

Problem NobodyListens(int port, const std::string& path) {
    return {Trouble::kNobodyListens, "the service is not running: nobody listens on " + Port(port) +
                                         ", " + path + " was left by an earlier run"};
}

Problem Silent(int port, std::chrono::milliseconds waited) {
    return {Trouble::kSilent, Port(port) + " gave no answer to the key within " + Seconds(waited) +
                                  ": the service is in the middle of a long command, or another "
                                  "program has taken the port"};
}

Problem TakesNobody(Server server, int port) {
    return {Trouble::kSilent, "the " + std::string(NameOf(server)) + " on " + Port(port) +
                                  " takes no more clients: it has as many as it can serve"};
}

Problem Interrupted() {
    return {Trouble::kInterrupted, "interrupted"};
}

Problem CannotConnect(int port, int error) {
    return {Trouble::kCannotConnect,
            "cannot connect to " + Port(port) + ": " + std::strerror(error)};
}

}  // namespace

Session::Session(const std::string& home, Limits waits)
    : keyFilePath(KeyFilePath(home)), limits(std::move(waits)) {}

Session::~Session() {
    onNotice = nullptr;  // whoever listens may be gone already
    for (const Server server : {Server::kCommand, Server::kPressure, Server::kApps})
        Close(server);
}

std::optional<Connection>& Session::Slot(Server server) {
    return connections[static_cast<std::size_t>(server)];
}

std::optional<Problem> Session::OpenWith(Server server, const KeyFile& file) {
    const int port = file.PortOf(server);
    if (port == -1)
        return Problem{Trouble::kPortNotOpened, "the service runs without its " +
                                                    std::string(NameOf(server)) +
                                                    ": it found no free port for it"};
    if (server != Server::kCommand) {
        auto opened = Connection::Open(port, Deadline::In(limits.handshake), limits.interruption);
        if (auto* connection = std::get_if<Connection>(&opened)) {
            Slot(server) = std::move(*connection);
            return std::nullopt;
        }
        const ConnectFailure& failure = std::get<ConnectFailure>(opened);
        switch (failure.status) {
            case ConnectStatus::kRefused:
                return NobodyListens(port, keyFilePath);
            case ConnectStatus::kTimedOut:
                return TakesNobody(server, port);
            case ConnectStatus::kInterrupted:
                return Interrupted();
            case ConnectStatus::kFailed:
                break;
        }
        return CannotConnect(port, failure.error);
    }
    Handshake handshake = Authorize(port, file.key, limits);
    switch (handshake.status) {
        case HandshakeStatus::kAuthorized:
            Slot(server) = std::move(handshake.connection);
            return std::nullopt;
        case HandshakeStatus::kNobodyListens:
            return NobodyListens(port, keyFilePath);
        case HandshakeStatus::kBusy:
            return Problem{Trouble::kBusy,
                           "the service is busy with another authorized client; it "
                           "serves one at a time"};
        case HandshakeStatus::kRefused:
            return Problem{Trouble::kKeyRefused,
                           Port(port) + " refused the key in " + keyFilePath +
                               ": the file belongs to another run, or another program has taken "
                               "the port"};
        case HandshakeStatus::kSilent:
            return Silent(port, limits.handshake);
        case HandshakeStatus::kForeign:
            return Problem{Trouble::kForeign,
                           Port(port) +
                               " belongs to something other than the service: it "
                               "says \"" +
                               handshake.said + '"'};
        case HandshakeStatus::kInterrupted:
            return Interrupted();
        case HandshakeStatus::kCannotConnect:
            break;
    }
    return CannotConnect(port, handshake.error);
}

std::optional<Problem> Session::Open(Server server) {
    if (Slot(server)) return std::nullopt;
    Result<KeyFile> file = ReadKeyFile(keyFilePath);
    for (;;) {
        if (!file.Ok()) return file.GetProblem();
        std::optional<Problem> problem = OpenWith(server, file.Value());
        if (!problem || problem->trouble == Trouble::kInterrupted) return problem;
        // A service that was started meanwhile has written new ports and a new key.
        Result<KeyFile> now = ReadKeyFile(keyFilePath);
        if (now.Ok() && now.Value() == file.Value()) return problem;
        file = std::move(now);
    }
}

Problem Session::Describe(Server server, const Connection& connection, ReadStatus status,
                          const std::string& name) const {
    switch (status) {
        case ReadStatus::kTimedOut:
            return {Trouble::kNoAnswerInTime, "no answer to " + name + " within " +
                                                  Seconds(limits.answer) +
                                                  "; the service may still be at it"};
        case ReadStatus::kInterrupted:
            return Interrupted();
        case ReadStatus::kTooLong:
            return {Trouble::kForeign, "what the " + std::string(NameOf(server)) +
                                           " sends has no end: it does not speak the "
                                           "service's language"};
        case ReadStatus::kMessage:
        case ReadStatus::kClosed:
            break;
    }
    const std::string half =
        connection.Pending().empty()
            ? std::string()
            : " (it broke off after \"" + OneLine(connection.Pending(), 40) + "\")";
    return {Trouble::kConnectionLost,
            "the connection was lost before the answer to " + name + half};
}

Result<Answer> Session::Run(std::string_view line) {
    const std::string word = FirstWord(line);
    const std::string name = OneLine(word, 80);
    const Command* command = FindCommand(word);
    const Server server = command == nullptr ? Server::kCommand : command->server;
    const ReplyKind reply = command == nullptr ? ReplyKind::kAnswer : command->reply;

    Receive(server);  // notices that something has ended the connection since the last command
    if (auto problem = Open(server)) return *problem;
    Connection& connection = *Slot(server);
    const Deadline deadline = Deadline::In(limits.answer);
    const auto giveUp = [&](ReadStatus status) {
        Problem problem = Describe(server, connection, status, name);
        Slot(server).reset();  // an answer that comes late must not answer the next command
        return problem;
    };

    const ReadStatus sent = connection.Send(std::string(line) + '|', deadline, limits.interruption);
    if (sent != ReadStatus::kMessage) return giveUp(sent);
    if (reply == ReplyKind::kNone) return Answer{};
    for (;;) {
        Incoming incoming = AwaitMessage(connection, deadline);
        if (incoming.status == ReadStatus::kClosed && reply == ReplyKind::kCloses &&
            connection.Pending().empty()) {
            Slot(server).reset();
            return Answer{};
        }
        if (incoming.status != ReadStatus::kMessage) return giveUp(incoming.status);
        if (incoming.message.framed)
            if (auto answer = ReadAnswer(incoming.message.text)) return std::move(*answer);
        if (onNotice) onNotice(incoming.message.text);
        if (deadline.Passed()) return giveUp(ReadStatus::kTimedOut);
    }
}

Incoming Session::AwaitMessage(Connection& connection, Deadline deadline) {
    if (!whileWaiting) return connection.Read(deadline, limits.interruption);
    for (;;) {
        const Deadline turn = deadline.OrIn(kWaitingTime);
        Incoming incoming = connection.Read(turn, limits.interruption);
        if (incoming.status != ReadStatus::kTimedOut || deadline.Passed()) return incoming;
        whileWaiting();
    }
}

bool Session::Send(Server server, std::string_view messages) {
    std::optional<Connection>& connection = Slot(server);
    if (!connection) return false;
    const Deadline deadline = Deadline::In(limits.answer);
    return connection->Send(messages, deadline, limits.interruption) == ReadStatus::kMessage;
}

Incoming Session::Next(Server server, Deadline deadline) {
    std::optional<Connection>& connection = Slot(server);
    if (!connection) return {ReadStatus::kClosed, {}};
    return connection->Read(deadline, limits.interruption);
}

Incoming Session::NextBytes(Server server, Deadline deadline) {
    std::optional<Connection>& connection = Slot(server);
    if (!connection) return {ReadStatus::kClosed, {}};
    return connection->ReadBytes(deadline, limits.interruption);
}

bool Session::Close(Server server) {
    std::optional<Connection>& connection = Slot(server);
    if (!connection) return true;
    const bool noticed =
        connection->Finish(Deadline::In(limits.farewell), [this](const Message& message) {
            if (onNotice) onNotice(message.text);
        });
    connection.reset();
    return noticed;
}

int Session::PollDescriptor(Server server) const {
    const auto& connection = connections[static_cast<std::size_t>(server)];
    return connection ? connection->PollDescriptor() : -1;
}

void Session::Receive(Server server) {
    // As many as one turn takes: a flood must not keep the user from typing.
    constexpr int kMostMessages = 1000;
    std::optional<Connection>& connection = Slot(server);
    for (int taken = 0; connection && taken < kMostMessages; taken++) {
        Incoming incoming = connection->Read(Deadline::Now(), {});
        if (incoming.status == ReadStatus::kTimedOut) return;
        if (incoming.status == ReadStatus::kMessage) {
            if (onNotice) onNotice(incoming.message.text);
            continue;
        }
        connection.reset();
        if (onLoss) onLoss(server);
    }
}

}  // namespace tesselctl
