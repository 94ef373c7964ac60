// tesselctl as a whole: from its arguments to its exit status.
#pragma once

#include <string>
#include <vector>

namespace tesselctl {

// `arguments` without the program's name.
int RunTool(const std::vector<std::string>& arguments);

}  // namespace tesselctl
