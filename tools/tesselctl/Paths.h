// Paths as the user names them, made fit for a service that has another working folder.
#pragma once

#include <string>

namespace tesselctl {

// The home folder of whoever runs tesselctl.
std::string UserHome();

// Without "." and slashes at the end; links stay as they are.
std::string AbsolutePath(const std::string& path);

// The last part of a path.
std::string FileNameOf(const std::string& path);

// False only when there is certainly nothing: what we may not look at, the service perhaps may.
bool Exists(const std::string& path);

bool IsFolder(const std::string& path);

}  // namespace tesselctl
