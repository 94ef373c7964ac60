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

// Shows the key; no result when the other side closed instead of an answer.
std::optional<Handshake> ShowKey(Connection connection, const std::string& key,
                                 const Limits& limits) {
    const Deadline deadline = Deadline::In(limits.handshake);
    // A failure to send shows in what can be read afterwards.
    connection.Send("auth " + key + '|', deadline, limits.interruption);
    for (;;) {
        Incoming incoming = connection.Read(deadline, limits.interruption);
        switch (incoming.status) {
            case ReadStatus::kMessage:
                break;
            case ReadStatus::kClosed:
                if (connection.Pending().empty()) return std::nullopt;
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
        // Another client was authorized after this connection had been accepted: the service takes
        // the key for a command now. That client has the service, so this counts like a closed
        // connection.
        if (message.framed && ReadAnswer(message.text)) return std::nullopt;
        if (!IsUnasked(message)) return Foreign(message.text);
        if (deadline.Passed()) return Failed(HandshakeStatus::kSilent);
    }
}

}  // namespace

Handshake Authorize(int port, const std::string& key, const Limits& limits) {
    auto knocked = Knock(port, limits);
    if (auto* failure = std::get_if<Handshake>(&knocked)) return std::move(*failure);
    if (auto shown = ShowKey(std::get<Connection>(std::move(knocked)), key, limits))
        return std::move(*shown);
    for (const Deadline patience = Deadline::In(limits.patience);;) {
        knocked = Knock(port, limits);
        if (auto* failure = std::get_if<Handshake>(&knocked)) return std::move(*failure);
        Connection& connection = std::get<Connection>(knocked);
        const Deadline quiet = Deadline::In(limits.quiet);
        Incoming unasked = connection.Read(quiet, limits.interruption);
        while (unasked.status == ReadStatus::kMessage && IsUnasked(unasked.message) &&
               !quiet.Passed())
            unasked = connection.Read(quiet, limits.interruption);
        switch (unasked.status) {
            case ReadStatus::kClosed:
                if (patience.Passed()) return Failed(HandshakeStatus::kBusy);
                std::this_thread::sleep_for(kPauseBetweenKnocks);
                continue;
            case ReadStatus::kInterrupted:
                return Failed(HandshakeStatus::kInterrupted);
            case ReadStatus::kTimedOut: {
                if (!connection.Pending().empty()) return Foreign(connection.Pending());
                auto shown = ShowKey(std::move(connection), key, limits);
                return shown ? std::move(*shown) : Failed(HandshakeStatus::kRefused);
            }
            case ReadStatus::kMessage:
            case ReadStatus::kTooLong:
                return Foreign(unasked.message.text);
        }
    }
}

}  // namespace tesselctl
