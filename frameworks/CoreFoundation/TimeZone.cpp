#include "CoreFoundation/TimeZone.h"

#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>

using frameworks::Checked;
using frameworks::Ref;
using frameworks::TimeZoneSources;

namespace {

// "Europe/Zurich", "America/North_Dakota/New_Salem", "Etc/GMT+1", "GB": what a zone's name is made
// of. A rule such as "CET-1CEST,M3.5.0,M10.5.0/3" is not a name, and neither is a path.
bool LooksLikeAZone(std::string_view name) {
    constexpr std::string_view kLegal =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_+-/";
    return !name.empty() && name.front() != '/' && name.back() != '/' &&
           name.find("//") == std::string_view::npos &&
           name.find_first_not_of(kLegal) == std::string_view::npos;
}

// The name in a path such as "/usr/share/zoneinfo/Europe/Zurich".
std::optional<std::string> ZoneOfPath(std::string_view path) {
    constexpr std::string_view kFolder = "/zoneinfo/";
    const std::size_t folder = path.rfind(kFolder);
    if (folder == std::string_view::npos) {
        return std::nullopt;
    }
    path.remove_prefix(folder + kFolder.size());
    // The same zones without and with leap seconds stand in folders of their own.
    for (const std::string_view variant : {"posix/", "right/"}) {
        if (path.substr(0, variant.size()) == variant) {
            path.remove_prefix(variant.size());
        }
    }
    // "localtime" in that folder is a link back to the system's choice, "posixrules" a default for
    // rules.
    if (!LooksLikeAZone(path) || path == "localtime" || path == "posixrules") {
        return std::nullopt;
    }
    return std::string(path);
}

bool IsFile(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

bool IsFolder(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::optional<std::string> ZoneOfVariable(const char* tz, const std::string& zoneinfoFolder) {
    if (tz == nullptr) {
        return std::nullopt;
    }
    std::string_view value = tz;
    if (value.substr(0, 1) == ":") {
        value.remove_prefix(1);
    }
    if (value.substr(0, 1) == "/") {
        return ZoneOfPath(value);
    }
    if (!LooksLikeAZone(value)) {
        return std::nullopt;
    }
    // A rule never looks like "Region/City", so that one is taken at its word: the older zones are
    // not installed everywhere. Without a slash only the zone's file tells a name ("EST5EDT") from
    // a rule ("CET-1CEST"), and where no zones are installed, the digit that every rule has.
    const std::string name(value);
    const bool isName =
        value.find('/') != std::string_view::npos || IsFile(zoneinfoFolder + "/" + name) ||
        (!IsFolder(zoneinfoFolder) && value.find_first_of("0123456789") == std::string_view::npos);
    return isName ? std::optional<std::string>(name) : std::nullopt;
}

std::optional<std::string> TargetOfLink(const std::string& link) {
    char target[PATH_MAX];
    const ssize_t size = readlink(link.c_str(), target, sizeof target);
    if (size <= 0 || static_cast<std::size_t>(size) == sizeof target) {
        return std::nullopt;
    }
    std::string path(target, static_cast<std::size_t>(size));
    // Relative to the link's own folder.
    return path.front() == '/' ? path : link.substr(0, link.rfind('/') + 1) + path;
}

// Goes from link to link, not to the end of the chain at once: zones are links to each other
// ("US/Pacific" to "America/Los_Angeles"), and the one that the system's administrator chose comes
// first.
std::optional<std::string> ZoneOfLink(const std::string& link) {
    constexpr int kLongestChain = 16;
    std::optional<std::string> path = link;
    for (int step = 0; step < kLongestChain; ++step) {
        path = TargetOfLink(*path);
        if (!path) {
            return std::nullopt;
        }
        if (std::optional<std::string> zone = ZoneOfPath(*path)) {
            return zone;
        }
    }
    return std::nullopt;
}

// The first word of the file.
std::optional<std::string> ZoneOfFile(const char* path) {
    const std::unique_ptr<std::FILE, decltype(&std::fclose)> file(std::fopen(path, "re"),
                                                                  &std::fclose);
    char line[256];
    if (file == nullptr || std::fgets(line, sizeof line, file.get()) == nullptr) {
        return std::nullopt;
    }
    const std::string_view name = std::string_view(line).substr(0, std::strcspn(line, " \t\r\n"));
    const bool isCut = name.size() == sizeof line - 1;
    return LooksLikeAZone(name) && !isCut ? std::optional<std::string>(name) : std::nullopt;
}

// The zone that CFTimeZoneCopySystem gives until it is reset.
struct SystemZone {
    std::mutex mutex;
    Ref<__CFTimeZone> zone;
};

SystemZone& TheSystemZone() {
    static SystemZone& system = *new SystemZone;
    return system;
}

CFTimeZoneRef CopySystem() noexcept {
    SystemZone& system = TheSystemZone();
    const std::lock_guard<std::mutex> lock(system.mutex);
    if (!system.zone) {
        TimeZoneSources sources;
        sources.tz = std::getenv("TZ");
        system.zone = Ref<__CFTimeZone>::Adopt(
            new __CFTimeZone(__CFString::Make(frameworks::SystemTimeZoneName(sources))));
    }
    return Ref<__CFTimeZone>::Retain(system.zone.Get()).Leak();
}

}  // namespace

std::string frameworks::SystemTimeZoneName(const TimeZoneSources& sources) {
    if (const auto zone = ZoneOfVariable(sources.tz, sources.zoneinfoFolder)) {
        return *zone;
    }
    if (const auto zone = ZoneOfLink(sources.localtimeLink)) {
        return *zone;
    }
    return ZoneOfFile(sources.timezoneFile).value_or("GMT");
}

bool __CFTimeZone::Equals(const Object& other) const {
    return name->Equals(static_cast<const __CFTimeZone&>(other).Name());
}

CFHashCode __CFTimeZone::Hash() const {
    return name->Hash();
}

std::string __CFTimeZone::Describe() const {
    return DescribeHead() + "{name = " + std::string(name->Text()) + "}";
}

CFTypeID CFTimeZoneGetTypeID() {
    return __CFTimeZone::kType.id;
}

CFTimeZoneRef CFTimeZoneCopySystem() {
    return CopySystem();
}

void CFTimeZoneResetSystem() {
    SystemZone& system = TheSystemZone();
    const std::lock_guard<std::mutex> lock(system.mutex);
    system.zone = Ref<__CFTimeZone>();
}

CFStringRef CFTimeZoneGetName(CFTimeZoneRef tz) {
    return &Checked<__CFTimeZone>(tz, "CFTimeZoneGetName").Name();
}
