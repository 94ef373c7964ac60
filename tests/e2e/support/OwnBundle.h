// The service's bundle as a copy that belongs to the sandbox's user and can be replaced and
// removed, which the one that every sandbox has cannot. It is there before the sandbox is made, and
// outlives it. All operations throw Failed.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

constexpr char kBundleFolder[] = "/Library/Application Support/Velto";

class OwnBundle {
  public:
    OwnBundle();
    ~OwnBundle();
    OwnBundle(const OwnBundle&) = delete;
    OwnBundle& operator=(const OwnBundle&) = delete;

    // What puts it in its place, for the sandbox's constructor.
    std::vector<std::string> Mount() const;
    // Where a path of the sandbox below kBundleFolder lies outside.
    std::filesystem::path Outside(const std::string& path) const;

  private:
    std::filesystem::path folder;
};
