// How much the service holds. Taken when nobody is connected, so that all of it is the service's own.
#pragma once

#include <cstddef>
#include <ostream>

#include "World.h"

struct Health {
    // Resident memory that is no file's, in KiB.
    long memory = 0;
    std::size_t descriptors = 0;
    int threads = 0;
};

Health HealthOf(const World& world);
std::ostream& operator<<(std::ostream& stream, const Health& health);
