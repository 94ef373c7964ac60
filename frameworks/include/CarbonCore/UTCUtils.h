// The date and time of the File Manager's records, which nothing fills in here.
#pragma once

#include <CarbonCore/MacTypes.h>

#pragma pack(push, 2)
struct UTCDateTime {
    UInt16 highSeconds;
    UInt32 lowSeconds;
    UInt16 fraction;
};
#pragma pack(pop)
