// What a command that runs until it is stopped waits for: the service, the user, and whoever reads
// its output.
//
// Control-C is the regular end of such a command, and so is a reader that has gone ("| head").
// Other signals end it as cleanly and show in the exit status.
//
// Owner: the command, one at a time. Threads: the main thread.
#pragma once

#include <chrono>
#include <string_view>

#include "tesselctl/Deadline.h"
#include "tesselctl/Limits.h"
#include "tesselctl/Signals.h"

namespace tesselctl {

class Watch {
  public:
    enum class Woken { kReadable, kTime, kResized, kStopped };

    // Until the descriptor is readable, or the time or something else has come.
    Woken Wait(int descriptor, Deadline deadline);

    // Writes to standard output, however slowly it is read; false when it is time to stop.
    bool Say(std::string_view text);

    // For work between two waits: whether a signal to stop has come.
    bool Stopped();

    // For work after the end: whether another signal to stop has come. Those of the first moment
    // count as one: who ends a whole group of processes often signals twice.
    bool StoppedAgain();

    // For the waits of a session: they end when it is time to stop.
    Interruption AsInterruption();

    // The exit status that the end stands for.
    int ExitStatus() const;

  private:
    Signals signals;
    // Takes the signals that have come; true when one of them is to stop.
    bool TakeSignals();

    bool stopped = false;
    std::chrono::steady_clock::time_point stoppedAt;
    bool resized = false;
    int endedBy = 0;
};

}  // namespace tesselctl
