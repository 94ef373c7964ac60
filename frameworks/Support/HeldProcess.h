// A process that was looked at before, held so that nothing is done to another one.
//
// A process's number is given out again when the process has gone. A descriptor holds it for as
// long as it takes to make sure that the number still stands for the same one.
//
// Owner: whoever makes it. Threads: one at a time. Failure: as said per call. A kernel that is too
// old to hold processes leaves a moment in which the number may change its meaning.
#pragma once

#include <chrono>

#include "Support/Proc.h"
#include "Support/UniqueDescriptor.h"

namespace frameworks {

class HeldProcess {
  public:
    explicit HeldProcess(const ProcessStatus& itsProcess);

    // 0, or an error number: ESRCH when that process has ended.
    int Signal(int signal) const;
    // Whether it has ended, or does within that time.
    bool EndsWithin(std::chrono::milliseconds time) const;

  private:
    bool IsThere() const;

    const ProcessStatus process;
    const UniqueDescriptor held;
};

}  // namespace frameworks
