#include "IOKit/RegistryEntry.h"

#include <dirent.h>
#include <limits.h>
#include <stdlib.h>

#include <charconv>
#include <cstring>
#include <memory>

#include "Support/ReadFile.h"

namespace frameworks {
namespace {

constexpr char kDevices[] = "/sys/bus/usb/devices";

// The line that the file NAME of a device's folder holds; empty when there is none.
std::string Attribute(const std::string& folder, const char* name) {
    std::string line = ReadFile((folder + "/" + name).c_str()).value_or("");
    line.resize(std::min(line.find('\n'), line.size()));
    return line;
}

std::optional<int> HexAttribute(const std::string& folder, const char* name) {
    const std::string line = Attribute(folder, name);
    const char* const end = line.data() + line.size();
    int value = 0;
    const auto result = std::from_chars(line.data(), end, value, 16);
    if (result.ec != std::errc() || result.ptr != end) return std::nullopt;
    return value;
}

}  // namespace

RegistryEntry::RegistryEntry(std::string itsPath)
    : path(std::move(itsPath)),
      number(Attribute(path, "dev")),
      vendor(HexAttribute(path, "idVendor")),
      product(HexAttribute(path, "idProduct")) {}

std::optional<int> RegistryEntry::Property(std::string_view name) const {
    if (name == "idVendor") return vendor;
    return name == "idProduct" ? product : std::nullopt;
}

std::vector<std::string> PathsOfDevices() {
    std::vector<std::string> paths;
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(kDevices), closedir);
    if (!folder) return paths;
    while (const dirent* const entry = readdir(folder.get())) {
        // The parts of a device stand there too: "1-2" is one, and "1-2:1.0" a part of it.
        if (entry->d_name[0] == '.' || std::strchr(entry->d_name, ':') != nullptr) continue;
        char path[PATH_MAX];
        if (realpath((std::string(kDevices) + "/" + entry->d_name).c_str(), path) != nullptr) {
            paths.emplace_back(path);
        }
    }
    return paths;
}

}  // namespace frameworks
