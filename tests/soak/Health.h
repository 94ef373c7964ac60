// How much the service holds. Taken when nobody is connected, so that all of it is the service's
// own.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "World.h"

struct Health {
    // Resident memory that is no file's, in KiB.
    long memory = 0;
    // What they are, in the order of their numbers.
    std::vector<std::string> descriptors;
    int threads = 0;
};

Health HealthOf(World& world);
std::ostream& operator<<(std::ostream& stream, const Health& health);
