// The ways in which "tesselctl pen" shows what comes.
//
// Owner: the command. Threads: one.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <string_view>

#include "tesselctl/Deadline.h"
#include "tesselctl/PenEvent.h"
#include "tesselctl/PenRequest.h"
#include "tesselctl/Watch.h"

namespace tesselctl {

class PenDisplay {
  public:
    using Time = std::chrono::steady_clock::time_point;

    virtual ~PenDisplay() = default;

    virtual void Take(const PenEvent& event, Time now) = 0;
    // Everything that has come is taken: shows it when it is time to. False when it is time to
    // stop.
    virtual bool Show(Watch& watch, Time now) = 0;
    // When to show again even if nothing comes.
    virtual Deadline Next() const { return Deadline::In(std::chrono::milliseconds(0)); }
    // The terminal has another size, or other text on it.
    virtual void Forget() {}
    // Shows the last state, whatever the time.
    virtual void End() {}
};

// Drawn over and over on a terminal, else a line for each event.
std::unique_ptr<PenDisplay> MakePenDisplay(PenForm form);

}  // namespace tesselctl
