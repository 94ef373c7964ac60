// The object behind EventRef: what happened, and the one thing there is to know about it.
//
// Owner: whoever sends it, for as long as its handlers are being called; it lies on the sender's
// stack and borrows its data. Threads: the sender's.
#pragma once

#include <HIToolbox/CarbonEventsCore.h>

struct OpaqueEventRef {
    OSType eventClass;
    UInt32 eventKind;
    EventParamName parameterName;
    EventParamType parameterType;
    const void* parameter;
    ByteCount parameterSize;
};
