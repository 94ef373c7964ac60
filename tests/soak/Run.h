// One run: warms the service up, loads it, disturbs it, and looks at its health from time to time.
#pragma once

#include <memory>
#include <vector>

#include "Health.h"
#include "Worker.h"
#include "World.h"
#include "faults/Injector.h"
#include "loads/ChannelLoad.h"
#include "loads/CommandLoad.h"
#include "loads/DeviceLoad.h"
#include "loads/PenLoad.h"

class Run {
  public:
    explicit Run(World& itsWorld);

    // Returns at the end of the time, or as soon as something is wrong; the verdict is the world's.
    void Go();

  private:
    using Clock = std::chrono::steady_clock;

    std::vector<Worker*> Workers();
    void Watch(Clock::time_point end);
    Health Settle();
    void Resume();
    void CompareWithTheFirst(const Health& now);

    World& world;
    DeviceLoad devices;
    CommandLoad commands;
    ChannelLoad channels;
    PenLoad pen;
    Injector faults;
    const Clock::time_point start = Clock::now();
    Health first;
};
