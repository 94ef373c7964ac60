// The process that stands for the user interface of the graphical session.
//
// On the Mac a program called SystemUIServer is started when somebody logs in; desktops of Linux
// have programs of many names. The leader of the session goes by that name instead, as long as it
// lives.
//
// Owner: the process; there is one at a time. Threads: any. Failure: none.
#pragma once

#include <sys/types.h>

#include <cstdint>

namespace frameworks {

constexpr char kSessionShellName[] = "SystemUIServer";

void NameSessionShell(pid_t pid, std::uint64_t startTime);
bool IsSessionShell(pid_t pid, std::uint64_t startTime);

}  // namespace frameworks
