// A date inside a property list: it is read, kept and compared, and nobody here asks what it says.
//
// Threads: any. Units: seconds since the beginning of 2001, in UTC. Failure: none.
#pragma once

#include "CoreFoundation/Object.h"

struct __CFDate final : frameworks::Object {
    static constexpr const frameworks::Type& kType = frameworks::kDateType;

    explicit __CFDate(double itsSeconds) : Object(kType), seconds(itsSeconds) {}

    double Seconds() const { return seconds; }

    bool Equals(const frameworks::Object& other) const override;
    CFHashCode Hash() const override;
    std::string Describe() const override;

  private:
    const double seconds;
};
