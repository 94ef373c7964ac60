#include "faults/Injector.h"

#include "support/Waiting.h"

Injector::Injector(World& itsWorld) : Worker(itsWorld, "faults") {
    for (const auto make : {MakeNoDescriptors, MakeFullDisk, MakeReadOnlyHome, MakeStopped,
                            MakeClockSet, MakeSignals, MakeBrowser}) {
        faults.push_back(make());
    }
}

void Injector::Step() {
    if (left.empty()) {
        ++rounds;
        for (const auto& fault : faults) {
            left.push_back(fault.get());
        }
        random.Shuffle(left);
    }
    std::this_thread::sleep_for(random.Milliseconds(100, 1000));
    Fault& fault = *left.back();
    left.pop_back();
    Inject(fault);
    world.tally.Count("fault: " + fault.Name());
}

void Injector::Inject(Fault& fault) {
    if (fault.Deprives()) {
        world.weather.TurnBad();
    }
    fault.Begin(world, random);
    std::this_thread::sleep_for(fault.Time(random));
    fault.End(world);
    if (fault.Deprives()) {
        world.weather.TurnFair();
    }
}
