#include "Health.h"

#include <algorithm>

#include "support/Waiting.h"

namespace {

std::vector<std::string> DescriptorsOf(World& world) {
    const std::string folder = "/proc/" + std::to_string(world.service->Pid()) + "/fd/";
    std::vector<int> numbers;
    for (const std::string& name : world.sandbox.List(folder)) {
        numbers.push_back(std::stoi(name));
    }
    std::sort(numbers.begin(), numbers.end());
    std::vector<std::string> descriptors;
    for (const int number : numbers) {
        const std::string name = std::to_string(number);
        try {
            descriptors.push_back(name + " " + world.sandbox.ReadLink(folder + name));
        } catch (const Failed&) {
            // Closed since.
        }
    }
    return descriptors;
}

}  // namespace

Health HealthOf(World& world) {
    const Service& service = *world.service;
    return {std::stol(service.StatusField("RssAnon")), DescriptorsOf(world),
            std::stoi(service.StatusField("Threads"))};
}

std::ostream& operator<<(std::ostream& stream, const Health& health) {
    return stream << health.memory << " KiB, " << health.descriptors.size() << " descriptors, "
                  << health.threads << " threads";
}
