// One connection of which every question waits for its answer, for as long as an answer may take.
// One thread. Throws Failed when an answer does not come in time, and Ended when the connection
// ends instead.
#pragma once

#include <functional>
#include <string>

#include "Line.h"
#include "World.h"

class Talk {
  public:
    struct Ended : Failed {
        using Failed::Failed;
    };
    // Takes what the service says by itself. False when it is an answer.
    using Aside = std::function<bool(const std::string& message)>;

    Talk() = default;
    // KIND is what its answers are counted as.
    Talk(World& itsWorld, int port, std::string itsKind, Aside itsAside);

    explicit operator bool() const { return world != nullptr; }
    void Send(const std::string& bytes);
    std::string Receive();
    std::string Ask(const std::string& question);
    void ExpectClosed();
    // Says goodbye in that way; half-closed it waits for the other half.
    void End(Farewell farewell);
    Line& TheLine() { return line; }

  private:
    World* world = nullptr;
    std::string kind;
    Aside aside;
    Line line;
};
