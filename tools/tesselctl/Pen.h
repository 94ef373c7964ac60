// "tesselctl pen": what the pen does, live.
//
// The pressure server sends pen data to one client at a time, the last that asked for it. While
// this runs, that is tesselctl; whoever it was before has to ask again afterwards.
#pragma once

#include <string>

#include "tesselctl/Limits.h"
#include "tesselctl/PenRequest.h"

namespace tesselctl {

// Until it is stopped (kExitSuccess) or the service goes away (kExitNoService). kExitNegative when
// there is no such application or nothing to plot, kExitOutput when the plot could not be written.
int ShowPen(const std::string& home, const Limits& limits, const PenRequest& request);

}  // namespace tesselctl
