#include "driver/TabletFinder.h"

#include <dirent.h>
#include <grp.h>
#include <limits.h>
#include <linux/input-event-codes.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <memory>

namespace driver {
namespace {

constexpr char kInputDevices[] = "/sys/class/input";
constexpr std::string_view kEventDevice = "event";
constexpr unsigned kBitsOfAWord = sizeof(long) * CHAR_BIT;

std::string FirstLine(const std::string& file) {
    std::ifstream stream(file);
    std::string line;
    std::getline(stream, line);
    return line;
}

std::string NameOf(std::string_view folder) {
    return std::string(folder.substr(folder.rfind('/') + 1));
}

// The number at the end of "event5".
unsigned NumberOf(const FoundTablet& tablet) {
    const std::string name = NameOf(tablet.folder);
    unsigned number = 0;
    std::from_chars(name.data() + kEventDevice.size(), name.data() + name.size(), number);
    return number;
}

std::string GroupOf(const std::string& node) {
    struct stat status;
    if (stat(node.c_str(), &status) != 0 || (status.st_mode & S_IRGRP) == 0 || status.st_gid == 0) {
        return std::string();
    }
    const group* const entry = getgrgid(status.st_gid);
    return entry == nullptr ? std::to_string(status.st_gid) : entry->gr_name;
}

}  // namespace

bool HasCode(std::string_view words, unsigned bit) {
    // From the lowest word up.
    for (unsigned word = bit / kBitsOfAWord;; --word) {
        const std::size_t blank = words.rfind(' ');
        const std::string_view last =
            blank == std::string_view::npos ? words : words.substr(blank + 1);
        if (word == 0) {
            unsigned long value = 0;
            std::from_chars(last.data(), last.data() + last.size(), value, 16);
            return (value >> bit % kBitsOfAWord & 1) != 0;
        }
        if (blank == std::string_view::npos) return false;
        words.remove_suffix(words.size() - blank);
    }
}

std::optional<FoundTablet> TabletAt(const std::string& folder) {
    const std::string name = NameOf(folder);
    if (name.compare(0, kEventDevice.size(), kEventDevice) != 0) return std::nullopt;
    const std::string keys = FirstLine(folder + "/device/capabilities/key");
    const std::string axes = FirstLine(folder + "/device/capabilities/abs");
    if (!HasCode(keys, BTN_TOOL_PEN) || !HasCode(axes, ABS_X) || !HasCode(axes, ABS_Y)) {
        return std::nullopt;
    }
    return FoundTablet{folder, "/dev/input/" + name, FirstLine(folder + "/device/name")};
}

std::vector<FoundTablet> FindTablets() {
    std::vector<FoundTablet> tablets;
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(kInputDevices), closedir);
    while (const dirent* const entry = folder ? readdir(folder.get()) : nullptr) {
        char path[PATH_MAX];
        const std::string link = std::string(kInputDevices) + "/" + entry->d_name;
        if (realpath(link.c_str(), path) == nullptr) continue;
        if (std::optional<FoundTablet> tablet = TabletAt(path)) {
            tablets.push_back(std::move(*tablet));
        }
    }
    std::sort(tablets.begin(), tablets.end(), [](const FoundTablet& one, const FoundTablet& other) {
        return NumberOf(one) < NumberOf(other);
    });
    return tablets;
}

std::string WhyUnreadable(const std::string& node, int error) {
    std::string why = std::strerror(error);
    if (error != EACCES && error != EPERM) return why;
    const std::string group = GroupOf(node);
    if (group.empty()) return why + "; only root may read it";
    return why + "; whoever runs the driver has to be in the group \"" + group +
           "\" (sudo usermod -aG " + group + " NAME) and to log in again";
}

}  // namespace driver
