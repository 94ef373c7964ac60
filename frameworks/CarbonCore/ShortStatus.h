// A status for the calls that give their result in 16 bits.
//
// Threads: any. Failure: none; what has no older code of its own does not fit and becomes ioErr.
#pragma once

#include <CarbonCore/MacErrors.h>
#include <CarbonCore/MacTypes.h>

#include <cstdint>

namespace frameworks {

constexpr OSErr ShortStatus(OSStatus status) {
    return status < INT16_MIN || status > INT16_MAX ? static_cast<OSErr>(ioErr)
                                                    : static_cast<OSErr>(status);
}

}  // namespace frameworks
