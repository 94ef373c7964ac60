// The prompt of the shell on a terminal: one edited line, with history and completion, while other
// descriptors are watched. It is the only file that knows the line editing library.
//
// Owner: the shell, one at a time. Threads: the main thread. Failure: a terminal that cannot be
// edited on still gives plain lines.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tesselctl/Signals.h"

namespace tesselctl {

enum class TypedKind {
    kLine,
    kEnd,       // the user has finished
    kDiscarded  // interrupted: the line is thrown away
};

struct Typed {
    TypedKind kind;
    std::string line;
};

class LineEditor {
  public:
    struct Watched {
        int descriptor;
        std::function<void()> ready;
    };

    // `names` completes the first word. `watched` is asked before every wait for what else to
    // watch.
    LineEditor(const std::string& prompt, std::vector<std::string> names, Signals& signals,
               std::function<std::vector<Watched>()> watched);
    ~LineEditor();
    LineEditor(const LineEditor&) = delete;
    LineEditor& operator=(const LineEditor&) = delete;

    // Lines to be found with the arrow keys, oldest first.
    void Remember(const std::string& line);

    Typed Read();

    // Prints a text (whole lines) in the place of the line that is being edited, which then stands
    // below it. At any other time it just prints it.
    void Interpose(const std::string& text);

    // The signal that ended it, or 0.
    int EndedBy() const;

  private:
    struct State;
    std::unique_ptr<State> state;
};

// The names that begin like a text, in their order.
std::vector<std::string> NamesBeginning(const std::vector<std::string>& names,
                                        const std::string& beginning);

// The longest text that all of them begin with.
std::string CommonBeginning(const std::vector<std::string>& names);

}  // namespace tesselctl
