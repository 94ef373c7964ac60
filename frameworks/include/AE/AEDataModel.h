// The names of types of data that travel with events.
#pragma once

#include <CarbonCore/MacTypes.h>

using DescType = ResType;

enum : DescType {
    typeProcessSerialNumber = 0x70736E20,  // 'psn '
    typeWildCard = 0x2A2A2A2A              // '****': whatever it is
};
