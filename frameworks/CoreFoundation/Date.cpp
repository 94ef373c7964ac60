#include "CoreFoundation/Date.h"

#include <functional>

bool __CFDate::Equals(const Object& other) const {
    return seconds == static_cast<const __CFDate&>(other).seconds;
}

CFHashCode __CFDate::Hash() const {
    return std::hash<double>()(seconds);
}

std::string __CFDate::Describe() const {
    return DescribeHead() + "{time = " + std::to_string(seconds) + "}";
}
