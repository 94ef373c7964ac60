#include "Health.h"

Health HealthOf(const World& world) {
    const Service& service = *world.service;
    return {std::stol(service.StatusField("RssAnon")), service.OpenDescriptors(),
            std::stoi(service.StatusField("Threads"))};
}

std::ostream& operator<<(std::ostream& stream, const Health& health) {
    return stream << health.memory << " KiB, " << health.descriptors << " descriptors, "
                  << health.threads << " threads";
}
