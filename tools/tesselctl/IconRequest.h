// What "tesselctl icon" is asked for.
#pragma once

#include <string>

#include "tesselctl/Arguments.h"

namespace tesselctl {

struct IconRequest {
    std::string bundle;  // an absolute path
    std::string file;    // where the icon goes
};

// What is wrong, or an empty text. An application that is named without a folder and is not in the
// current one is looked for among the installed ones, those of all users and those in HOME.
std::string ParseIcon(Arguments& arguments, const std::string& home, IconRequest& request);

}  // namespace tesselctl
