// The signals of an interactive program, delivered as bytes on a pipe so that poll() can wait for
// them together with everything else and none is lost between a check and a wait.
//
// Owner: the shell, or whatever goes on until it is told to end, one at a time. The former handlers
// come back when it goes; where there were none, signals after the one to end are ignored. Threads:
// the main thread.
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
    // One of the first three has been taken.
    bool hasBeenTold = false;
    std::array<struct sigaction, 5> former{};
};

}  // namespace tesselctl
