#include "tesselctl/Handshake.h"

#include <thread>

#include "tesselctl/Answer.h"

namespace tesselctl {
namespace {

constexpr std::size_t kShownBytes = 40;
constexpr std::chrono::milliseconds kPauseBetweenKnocks{25};

Handshake Failed(HandshakeStatus status) {
    return {status, std::nullopt};
}

Handshake Foreign(std::string_view said) {
    return {HandshakeStatus::kForeign, std::nullopt, OneLine(said, kShownBytes)};
}

// Pen data and news about tablets may come first: they go to whoever has the number of an earlier
// client.
bool IsUnasked(const Message& message) {
    return !message.framed || IsNotice(message.text);
}

// The connection, or why there is none.
std::variant<Connection, Handshake> Knock(int port, const Limits& limits) {
    auto opened = Connection::Open(port, Deadline::In(limits.handshake), limits.interruption);
    if (auto* connection = std::get_if<Connection>(&opened)) return std::move(*connection);
    const ConnectFailure& failure = std::get<ConnectFailure>(opened);
    switch (failure.status) {
        case ConnectStatus::kRefused:
            return Failed(HandshakeStatus::kNobodyListens);
        case ConnectStatus::kTimedOut:
            return Failed(HandshakeStatus::kSilent);
        case ConnectStatus::kInterrupted:
            return Failed(HandshakeStatus::kInterrupted);
        case ConnectStatus::kFailed:
            break;
    }
    return Handshake{HandshakeStatus::kCannotConnect, std::nullopt, {}, failure.error};
}

// What came of showing the key.
struct Shown {
    enum Kind {
        kSettled,  // see the handshake
        kClosed,   // the other side closed instead of an answer
        kTaken     // another client was authorized meanwhile and has the service
    };
    Kind kind;
    Handshake handshake;

    Shown(Kind unsettled) : kind(unsettled), handshake(Failed(HandshakeStatus::kBusy)) {}
    Shown(Handshake settled) : kind(kSettled), handshake(std::move(settled)) {}
};

Shown ShowKey(Connection connection, const std::string& key, const Limits& limits) {
    const Deadline deadline = Deadline::In(limits.handshake);
    // A failure to send shows in what can be read afterwards.
    connection.Send("auth " + key + '|', deadline, limits.interruption);
    for (;;) {
        Incoming incoming = connection.Read(deadline, limits.interruption);
        switch (incoming.status) {
            case ReadStatus::kMessage:
                break;
            case ReadStatus::kClosed:
                if (connection.Pending().empty()) return Shown::kClosed;
                return Foreign(connection.Pending());
            case ReadStatus::kTimedOut:
                if (connection.Pending().empty()) return Failed(HandshakeStatus::kSilent);
                return Foreign(connection.Pending());
            case ReadStatus::kInterrupted:
                return Failed(HandshakeStatus::kInterrupted);
            case ReadStatus::kTooLong:
                return Foreign(connection.Pending());
        }
        const Message& message = incoming.message;
        if (message.framed && message.text == "authOk")
            return Handshake{HandshakeStatus::kAuthorized, std::move(connection)};
        if (message.framed && ReadAnswer(message.text)) return Shown::kTaken;
        if (!IsUnasked(message)) return Foreign(message.text);
        if (deadline.Passed()) return Failed(HandshakeStatus::kSilent);
    }
}

// How the other side takes a connection on which nothing is sent, within a time.
enum class Unasked { kLeavesOpen, kCloses, kTalks, kInterrupted };

// `said` is what it talks.
Unasked Watch(Connection& connection, std::chrono::milliseconds time, const Limits& limits,
              std::string& said) {
    const Deadline deadline = Deadline::In(time);
    for (;;) {
        const Incoming incoming = connection.Read(deadline, limits.interruption);
        said = incoming.status == ReadStatus::kMessage ? incoming.message.text
                                                       : std::string(connection.Pending());
        switch (incoming.status) {
            case ReadStatus::kClosed:
                return Unasked::kCloses;
            case ReadStatus::kInterrupted:
                return Unasked::kInterrupted;
            case ReadStatus::kTimedOut:
                return said.empty() ? Unasked::kLeavesOpen : Unasked::kTalks;
            case ReadStatus::kTooLong:
                return Unasked::kTalks;
            case ReadStatus::kMessage:
                if (!IsUnasked(incoming.message)) return Unasked::kTalks;
                if (deadline.Passed()) return Unasked::kLeavesOpen;
        }
    }
}

}  // namespace

Handshake Authorize(int port, const std::string& key, const Limits& limits) {
    auto knocked = Knock(port, limits);
    if (auto* failure = std::get_if<Handshake>(&knocked)) return std::move(*failure);
    Shown shown = ShowKey(std::get<Connection>(std::move(knocked)), key, limits);
    if (shown.kind == Shown::kSettled) return std::move(shown.handshake);

    std::chrono::milliseconds time = limits.glance;
    for (const Deadline patience = Deadline::In(limits.patience);;) {
        knocked = Knock(port, limits);
        if (auto* failure = std::get_if<Handshake>(&knocked)) return std::move(*failure);
        Connection& connection = std::get<Connection>(knocked);
        std::string said;
        switch (Watch(connection, time, limits, said)) {
            case Unasked::kInterrupted:
                return Failed(HandshakeStatus::kInterrupted);
            case Unasked::kTalks:
                return Foreign(said);
            case Unasked::kCloses:
                shown = Shown::kTaken;
                break;
            case Unasked::kLeavesOpen:
                shown = ShowKey(std::move(connection), key, limits);
                break;
        }
        switch (shown.kind) {
            case Shown::kSettled:
                return std::move(shown.handshake);
            case Shown::kClosed:
                if (time == limits.quiet) return Failed(HandshakeStatus::kRefused);
                time = limits.quiet;
                break;
            case Shown::kTaken:
                if (patience.Passed()) return Failed(HandshakeStatus::kBusy);
                std::this_thread::sleep_for(kPauseBetweenKnocks);
                time = limits.glance;
        }
    }
}

}  // namespace tesselctl
