// The signals of an interactive program, delivered as bytes on a pipe so that poll() can wait for
// them together with everything else and none is lost between a check and a wait.
//
// Owner: the shell, one at a time; the former handlers come back when it goes. Threads: the main
// thread.
#pragma once

#include <signal.h>

#include <array>
#include <optional>

#include "tesselctl/Descriptor.h"

namespace tesselctl {

class Signals {
  public:
    Signals();
    ~Signals();
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;

    // Readable when a signal waits to be taken.
    int PollDescriptor() const { return readEnd.Get(); }

    // The next signal that has come: SIGINT, SIGTERM, SIGHUP, SIGWINCH or SIGCONT.
    std::optional<int> Take();

  private:
    Descriptor readEnd;
    Descriptor writeEnd;
    std::array<struct sigaction, 5> former{};
};

}  // namespace tesselctl
