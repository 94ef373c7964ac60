// What the run has in common: the service in its sandbox, on a small disk of its own, and what
// everybody looks at. All of its parts may be used on every thread, but `service`, of which only
// the main thread asks whether it runs.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "Doors.h"
#include "Options.h"
#include "Random.h"
#include "SmallDisk.h"
#include "Tally.h"
#include "Verdict.h"
#include "Weather.h"
#include "outside/Devices.h"
#include "support/Sandbox.h"
#include "support/Service.h"

class World {
  public:
    explicit World(const Options& itsOptions);
    ~World();
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    // Waits as long as the service may take for an answer; throws Failed.
    Descriptor Connect(int port);
    // Nothing of what is logged is looked at but the end, and an hour of it fills every disk.
    void ShortenLogs() const;
    // How many seconds the service's clock goes wrong.
    void SetClock(std::int64_t seconds) const;

    const Options options;
    Verdict verdict;
    Tally tally;
    Weather weather;
    Doors doors;
    // Before the small disk takes the place of the folder for temporary files.
    Devices devices;
    SmallDisk disk;
    Sandbox sandbox;
    std::unique_ptr<Service> service;

  private:
    std::vector<std::string> Mounts() const;
    Start HowToStart() const;
};
