// A USB device as the registry remembers it: also when it has gone.
//
// Threads: any; it does not change. Failure: a property that the device does not have, or that is
// no number, is not there; nothing is known of a device, or of all, while descriptors or memory are
// lacking.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace frameworks {

class RegistryEntry {
  public:
    // Of the device whose folder in /sys is PATH, as it says there now. Null for a lack.
    static std::shared_ptr<const RegistryEntry> Read(const std::string& path);

    const std::string& Path() const { return path; }
    // Differs between two devices that had the same path one after the other.
    const std::string& Number() const { return number; }

    std::optional<int> Property(std::string_view name) const;

  private:
    RegistryEntry() = default;

    std::string path;
    std::string number;
    std::optional<int> vendor;
    std::optional<int> product;
};

// The paths of all devices that are there. Nothing for a lack.
std::optional<std::vector<std::string>> PathsOfDevices();

}  // namespace frameworks
