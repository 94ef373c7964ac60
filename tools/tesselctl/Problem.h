// What kept tesselctl from an answer, and what a person reads about it.
//
// A Problem is one trouble and its finished line of text: whoever meets the trouble knows the ports
// and paths that belong into the line, whoever receives it decides by the kind. A Result is a value
// or a Problem; asking it for the one that it does not hold is a mistake in the program.
#pragma once

#include <string>
#include <utility>
#include <variant>

namespace tesselctl {

enum class Trouble {
    kNoKeyFile,          // no service has ever been started in this home
    kKeyFileUnreadable,  // it is there, and the system does not let us read it
    kKeyFileDamaged,     // it is there, and it is not what a service writes
    kNobodyListens,      // a key file of a service that is gone
    kPortNotOpened,      // the service says itself that it has no such port
    kCannotConnect,      // the system refused a connection for a reason of its own
    kSilent,             // somebody accepts connections and says nothing
    kForeign,            // somebody accepts connections and is not the service
    kBusy,               // the service serves another authorized client
    kKeyRefused,         // the service is there and does not know the key
    kConnectionLost,     // the connection ended before the answer
    kNoAnswerInTime,
    kInterrupted,   // the user did not want to wait any longer
    kInexpressible  // the command language has no way to say it; nothing was sent
};

struct Problem {
    Trouble trouble;
    std::string text;  // one line, without the program's name and without a line feed
};

template <typename T>
class Result {
  public:
    // Implicit on purpose: a function returns either of the two as it stands.
    Result(T value) : held(std::move(value)) {}
    Result(Problem problem) : held(std::move(problem)) {}

    bool Ok() const { return held.index() == 0; }
    T& Value() { return std::get<0>(held); }
    const T& Value() const { return std::get<0>(held); }
    const Problem& GetProblem() const { return std::get<1>(held); }

  private:
    std::variant<T, Problem> held;
};

}  // namespace tesselctl
