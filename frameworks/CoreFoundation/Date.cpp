#include "CoreFoundation/Date.h"

#include <cmath>
#include <functional>

bool __CFDate::Equals(const Object& other) const {
    const double otherSeconds = static_cast<const __CFDate&>(other).seconds;
    return seconds == otherSeconds || (std::isnan(seconds) && std::isnan(otherSeconds));
}

CFHashCode __CFDate::Hash() const {
    return std::isnan(seconds) ? 0 : std::hash<double>()(seconds);
}

std::string __CFDate::Describe() const {
    return DescribeHead() + "{time = " + std::to_string(seconds) + "}";
}
