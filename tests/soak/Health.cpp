#include "Health.h"

#include <algorithm>

#include "support/Files.h"
#include "support/Waiting.h"

namespace {

// What the kernel's tables say of a socket: its ends and its state, or its name.
std::string Ends(World& world, const std::string& target) {
    const std::size_t bracket = target.find('[');
    if (target.compare(0, 7, "socket:") != 0 || bracket == std::string::npos) {
        return "";
    }
    const std::string inode = " " + target.substr(bracket + 1, target.size() - bracket - 2);
    for (const char* const table : {"/proc/net/tcp", "/proc/net/unix"}) {
        for (const std::string& line : Lines(world.sandbox.Read(table) + "\n")) {
            if (Contains(line + " ", inode + " ")) {
                return " " + std::string(table) + ": " + line;
            }
        }
    }
    return " in no table";
}

// umockdev's library in the service leaves a socket behind that it could not connect, when a file
// cannot be opened for want of descriptors. The service has none of that kind: its own are
// connected, or closed at once.
bool IsLeftByTheDevicesLibrary(const std::string& ends) {
    return Contains(ends, "/proc/net/unix: ") && Contains(ends, " 00000000 0001 01 ");
}

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
            const std::string target = world.sandbox.ReadLink(folder + name);
            const std::string ends = Ends(world, target);
            if (!IsLeftByTheDevicesLibrary(ends)) {
                descriptors.push_back(name + " " + target + ends);
            }
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
