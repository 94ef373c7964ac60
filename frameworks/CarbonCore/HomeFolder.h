// The home folder of the user whom the process acts for.
//
// HOME names it, if that is a folder of the user's own; otherwise the password database does.
//
// Threads: any. Failure: nothing when neither of them names a folder that exists.
#pragma once

#include <optional>
#include <string>

namespace frameworks {

// As it is named, not resolved. The standard folders inside are made the first time; that they
// cannot be is no failure.
std::optional<std::string> HomeFolder();

// The folder that the environment variable NAME names: an absolute path of a folder that exists,
// and only while the process acts for the user whose environment it is.
std::optional<std::string> FolderInEnvironment(const char* name);

}  // namespace frameworks
