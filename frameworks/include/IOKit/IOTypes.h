// The types of IOKit. Its objects are numbers that stand for them; 0 is none.
#pragma once

#include <CarbonCore/MacTypes.h>

extern "C" {

using kern_return_t = int;
using mach_port_t = unsigned int;

using io_object_t = mach_port_t;
using io_iterator_t = io_object_t;
using io_registry_entry_t = io_object_t;
using io_service_t = io_object_t;

using IOOptionBits = UInt32;
using io_name_t = char[128];

#define IO_OBJECT_NULL ((io_object_t)0)

}  // extern "C"
