#include "IOKit/RegistryEntry.h"

#include <dirent.h>
#include <limits.h>
#include <stdlib.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <memory>

#include "Support/ReadFile.h"

namespace frameworks {
namespace {

constexpr char kDevices[] = "/sys/bus/usb/devices";

// Whether what has just failed may work later.
bool IsLack() {
    return errno == EMFILE || errno == ENFILE || errno == ENOMEM;
}

// The line that the file NAME of a device's folder holds; empty when there is none. Nothing for a
// lack.
std::optional<std::string> Attribute(const std::string& folder, const char* name) {
    std::optional<std::string> line = ReadFile((folder + "/" + name).c_str());
    if (!line) {
        if (IsLack()) return std::nullopt;
        line = "";
    }
    line->resize(std::min(line->find('\n'), line->size()));
    return line;
}

std::optional<int> NumberOfHex(const std::string& line) {
    const char* const end = line.data() + line.size();
    int value = 0;
    const auto result = std::from_chars(line.data(), end, value, 16);
    if (result.ec != std::errc() || result.ptr != end) return std::nullopt;
    return value;
}

}  // namespace

std::shared_ptr<const RegistryEntry> RegistryEntry::Read(const std::string& path) {
    std::optional<std::string> number = Attribute(path, "dev");
    const std::optional<std::string> vendor = Attribute(path, "idVendor");
    const std::optional<std::string> product = Attribute(path, "idProduct");
    if (!number || !vendor || !product) return nullptr;
    RegistryEntry entry;
    entry.path = path;
    entry.number = *std::move(number);
    entry.vendor = NumberOfHex(*vendor);
    entry.product = NumberOfHex(*product);
    return std::make_shared<const RegistryEntry>(std::move(entry));
}

std::optional<int> RegistryEntry::Property(std::string_view name) const {
    if (name == "idVendor") return vendor;
    return name == "idProduct" ? product : std::nullopt;
}

std::optional<std::vector<std::string>> PathsOfDevices() {
    std::vector<std::string> paths;
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(kDevices), closedir);
    if (!folder) return IsLack() ? std::nullopt : std::optional(paths);
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
