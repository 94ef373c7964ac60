// The Mac's result code for an error number of the system.
//
// Error numbers that have no older code of their own become 100000 plus the number, as on the Mac.
// Threads: any.
#pragma once

#include <CarbonCore/MacTypes.h>

namespace frameworks {

OSStatus StatusOfErrno(int error);

}  // namespace frameworks
