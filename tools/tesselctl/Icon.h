// "tesselctl icon": the icon of an application as a file of one's own.
#pragma once

#include <string>

#include "tesselctl/IconRequest.h"
#include "tesselctl/Limits.h"

namespace tesselctl {

// Where the service puts every icon that it is asked for.
constexpr const char* kExportedIcon = "/Users/Shared/icon.png";

// kExitSuccess, kExitNegative when the application has no icon, kExitOutput when it could not be
// put at its place. `exported` is another place than kExportedIcon for tests.
int SaveIcon(const std::string& home, const Limits& limits, const IconRequest& request,
             const std::string& exported = kExportedIcon);

}  // namespace tesselctl
