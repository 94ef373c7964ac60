// The results of IOKit's calls.
#pragma once

#include <IOKit/IOTypes.h>

extern "C" {

using IOReturn = kern_return_t;

#define kIOReturnSuccess ((IOReturn)0)
#define kIOReturnNoMemory ((IOReturn)0xe00002bd)
#define kIOReturnBadArgument ((IOReturn)0xe00002c2)
#define kIOReturnUnsupported ((IOReturn)0xe00002c7)

}  // extern "C"
