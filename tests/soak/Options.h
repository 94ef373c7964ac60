// What the run is told on its command line.
#pragma once

#include <chrono>
#include <cstdint>

struct Options {
    std::chrono::seconds duration{3600};
    std::uint64_t seed = 0;
    // How long an answer may take. The machine may be busy with other things.
    std::chrono::seconds patience{10};
    int channelClients = 200;
    // Channel messages a second, at the most.
    int channelRate = 1000;
    // Pen events a second, on the average: they come in strokes at full speed.
    int penRate = 5000;
};
