// "tesselctl channel": a small application's end of a channel, for people who write one.
#pragma once

#include <string>

#include "tesselctl/ChannelRequest.h"
#include "tesselctl/Limits.h"

namespace tesselctl {

// Listening goes on until it is stopped (kExitSuccess) or the service goes away (kExitNoService).
// Sending is kExitNegative when nobody got it.
int UseChannel(const std::string& home, const Limits& limits, const ChannelRequest& request);

}  // namespace tesselctl
