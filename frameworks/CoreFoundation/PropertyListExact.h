// What the library's own calls cut short: the seconds of a date, which they hand over in 32 bits,
// and whether a whole number has a sign. The binary form of a single object has them whole.
//
// Threads: any. Failure: nothing, or null.
#pragma once

#include <cstdint>
#include <optional>

#include "CoreFoundation/PropertyListLibrary.h"

namespace frameworks {

// Since the beginning of 2001.
std::optional<double> SecondsOfDate(const PropertyListLibrary& library,
                                    PropertyListLibrary::Node date);
// Whether a whole number whose highest bit is set is above zero.
bool IsLargeNumber(const PropertyListLibrary& library, PropertyListLibrary::Node number);

OwnedNode MakeDate(const PropertyListLibrary& library, double seconds);
OwnedNode MakeNegativeNumber(const PropertyListLibrary& library, std::int64_t value);
OwnedNode MakeLargeNumber(const PropertyListLibrary& library, std::uint64_t value);

}  // namespace frameworks
