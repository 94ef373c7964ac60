// Who listens on a port of this machine, as far as the system lets us see it: the kernel's table of
// listening sockets gives the socket, the open descriptors of our own processes (of all, for root)
// give the process.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace tesselctl {

struct Listener {
    bool known = false;  // whether the table could be read at all; false on systems without one
    bool present = false;
    std::optional<pid_t> process;  // nothing when it is not ours to see
    std::string name;              // of the process
};

// `proc` is where the process file system is mounted.
Listener FindListener(int port, const std::string& proc = "/proc");

}  // namespace tesselctl
