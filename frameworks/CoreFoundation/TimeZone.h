// The object behind CFTimeZoneRef, and how the name of the system's zone is found.
//
// Threads: any. Failure: none; when nothing tells, the zone is "GMT".
#pragma once

#include <CoreFoundation/CFTimeZone.h>

#include <string>

#include "CoreFoundation/Object.h"
#include "CoreFoundation/String.h"

namespace frameworks {

// Where the name of the zone is looked for, in this order. Tests look elsewhere.
struct TimeZoneSources {
    // The value of the TZ environment variable; null when it is not set.
    const char* tz = nullptr;
    const char* localtimeLink = "/etc/localtime";
    const char* timezoneFile = "/etc/timezone";
    // Holds one file per zone, where it is installed.
    const char* zoneinfoFolder = "/usr/share/zoneinfo";
};

std::string SystemTimeZoneName(const TimeZoneSources& sources);

}  // namespace frameworks

struct __CFTimeZone final : frameworks::Object {
    static constexpr const frameworks::Type& kType = frameworks::kTimeZoneType;

    explicit __CFTimeZone(frameworks::Ref<__CFString> itsName)
        : Object(kType), name(std::move(itsName)) {}

    const __CFString& Name() const { return *name; }

    bool Equals(const frameworks::Object& other) const override;
    CFHashCode Hash() const override;
    std::string Describe() const override;

  private:
    const frameworks::Ref<__CFString> name;
};
