#include "Talk.h"

#include "support/Waiting.h"

Talk::Talk(World& itsWorld, int port, std::string itsKind, Aside itsAside)
    : world(&itsWorld),
      kind(std::move(itsKind)),
      aside(std::move(itsAside)),
      line(itsWorld.Connect(port)) {}

void Talk::Send(const std::string& bytes) {
    if (!line.Send(bytes)) {
        throw Ended(kind + ": the connection has ended");
    }
}

std::string Talk::Receive() {
    const auto start = std::chrono::steady_clock::now();
    const Deadline deadline(world->options.patience);
    bool goesOn = true;
    for (;;) {
        while (const std::optional<std::string> message = line.Next()) {
            if (!aside(*message)) {
                world->tally.Took(kind, std::chrono::steady_clock::now() - start);
                return *message;
            }
        }
        if (!goesOn) {
            throw Ended(kind + ": the service closed the connection instead of answering");
        }
        if (deadline.Passed()) {
            throw Failed(kind + ": no answer in " +
                         std::to_string(world->options.patience.count()) + " s");
        }
        line.WaitForInput(deadline.Milliseconds());
        goesOn = line.SendTheRest() && line.Read();
    }
}

std::string Talk::Ask(const std::string& question) {
    Send(question + "|");
    try {
        return Receive();
    } catch (const Ended& ended) {
        throw Ended(std::string(ended.what()) + " \"" + question + "\"");
    } catch (const Failed& failure) {
        throw Failed(std::string(failure.what()) + " to \"" + question + "\"");
    }
}

void Talk::ExpectClosed() {
    try {
        const std::string message = Receive();
        throw Failed(kind + ": expected the end, and got " + message);
    } catch (const Ended&) {
        line.Close();
    }
}

void Talk::End(Farewell farewell) {
    switch (farewell) {
        case Farewell::kClose:
            line.Close();
            break;
        case Farewell::kReset:
            line.Reset();
            break;
        case Farewell::kHalfClose: {
            line.ShutDownSending();
            const Deadline deadline(world->options.patience);
            while (line.Read()) {
                if (deadline.Passed()) {
                    throw Failed(kind + ": the service does not close its side");
                }
                line.WaitForInput(deadline.Milliseconds());
            }
            line.Close();
            break;
        }
    }
}
