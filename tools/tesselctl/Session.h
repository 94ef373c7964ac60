// The conversation with a service: opens the connection that a command needs, sends it, waits for
// its answer.
//
// Connections stay open between commands, one for each server, because the service ties the
// authorization, the pen data and the channel names to them. The key file is read whenever a
// connection is opened, so a service that was restarted in between is found again; a command that
// may already have been run is never sent twice.
//
// Owner: one per run of tesselctl. Threads: one. Failure: a Problem whose text a person can use.
#pragma once

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "tesselctl/Answer.h"
#include "tesselctl/Commands.h"
#include "tesselctl/Connection.h"
#include "tesselctl/KeyFile.h"
#include "tesselctl/Limits.h"
#include "tesselctl/Problem.h"

namespace tesselctl {

class Session {
  public:
    using NoticeHandler = std::function<void(const std::string& text)>;
    using LossHandler = std::function<void(Server)>;

    Session(const std::string& home, Limits waits);
    // Takes leave of the open connections, see Connection::Finish.
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Messages that answer no command; dropped when nobody asks for them.
    void OnNotice(NoticeHandler handler) { onNotice = std::move(handler); }
    // A connection that the service has closed between two commands.
    void OnLoss(LossHandler handler) { onLoss = std::move(handler); }

    // Opens the connection to a server if it is not open; nothing when it is open afterwards.
    std::optional<Problem> Open(Server server);

    // Runs one line, which must be sendable (see Quoting.h). A command without an answer gives
    // Word::kNone.
    Result<Answer> Run(std::string_view line);

    // While an answer is waited for, this is called every kWaitingTime.
    static constexpr std::chrono::milliseconds kWaitingTime{100};
    void WhileWaiting(std::function<void()> handler) { whileWaiting = std::move(handler); }

    // The following are for a conversation that is more than a command and its answer, on an open
    // connection. Send takes whole messages, with their bars, and gives false when the connection
    // is lost.
    bool Send(Server server, std::string_view messages);
    // What the service says next; kClosed when there is no connection any more.
    Incoming Next(Server server, Deadline deadline);
    // The same, as bytes: see Connection::ReadBytes.
    Incoming NextBytes(Server server, Deadline deadline);

    // Takes leave of one server; false when it did not take notice in time. What it still says is a
    // notice.
    bool Close(Server server);

    // For whoever polls while no command runs: the descriptor of an open connection or -1, and what
    // to do when it is readable.
    int PollDescriptor(Server server) const;
    void Receive(Server server);

    const std::string& KeyFileName() const { return keyFilePath; }

  private:
    std::optional<Connection>& Slot(Server server);
    Problem Describe(Server server, const Connection& connection, ReadStatus status,
                     const std::string& name) const;
    // One message, or no more time.
    Incoming AwaitMessage(Connection& connection, Deadline deadline);
    std::optional<Problem> OpenWith(Server server, const KeyFile& file);

    std::string keyFilePath;
    Limits limits;
    std::array<std::optional<Connection>, 3> connections;
    NoticeHandler onNotice;
    LossHandler onLoss;
    std::function<void()> whileWaiting;
};

}  // namespace tesselctl
