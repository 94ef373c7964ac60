// Runs programs for people, and has documents opened.
//
// Threads: any. Failure: a status of Launch Services.
#pragma once

#include <CarbonCore/MacTypes.h>

#include <string>

namespace frameworks {

// Whether the folder of an application is at PATH.
bool IsApplication(const std::string& path);

// Whether there is something at PATH to launch: an application, or an executable file.
bool IsLaunchable(const std::string& path);

OSStatus LaunchApplication(const std::string& path);

// With the desktop's application for it.
OSStatus OpenDocument(const std::string& path);

}  // namespace frameworks
