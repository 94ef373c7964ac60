// "tesselctl install", "upgrade", "remove", "start", "stop", "is-running" and "is-installed": the
// service's commands about applications, in plain words.
#pragma once

#include <string>

#include "tesselctl/ApplicationRequest.h"
#include "tesselctl/Limits.h"

namespace tesselctl {

// kExitSuccess when it was done or the answer is yes, kExitNegative when not. Where it cannot be
// seen whether an installation was done, what the service says of it counts.
int HandleApplication(const std::string& home, const Limits& limits,
                      const ApplicationRequest& request);

}  // namespace tesselctl
