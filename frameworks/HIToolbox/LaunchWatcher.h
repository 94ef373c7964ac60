// Finds out that a program has been started, and tells the application's event handlers.
//
// Linux has no call that tells a process without rights of such things, so /proc is looked through
// now and then. The shell of a graphical session is announced when logind reports the session;
// HIServices/SessionShell.h says how it gets its name.
//
// Owner: the main thread's run loop, while Keep was last called with true. Threads: the main
// thread. Failure: what cannot be read is not announced.
#pragma once

#include <chrono>
#include <map>
#include <string>

#include "CoreFoundation/RunLoop.h"
#include "CoreFoundation/RunLoopSource.h"
#include "Support/Proc.h"

namespace frameworks {

class LaunchWatcher final : public __CFRunLoopSource {
  public:
    // How often to look, and for how long a new process is expected to become another program:
    // a session's script takes its time to prepare everything. Tests are in more of a hurry.
    // NOLINTBEGIN(cert-err58-cpp): a constant expression, nothing runs
    static inline std::chrono::milliseconds interval{500};
    static inline std::chrono::milliseconds timeToSettle{10000};
    // NOLINTEND(cert-err58-cpp)

    // Whether there shall be one. What runs when it begins is not announced.
    static void Keep(bool wanted);

  private:
    struct Known {
        ino_t inode = 0;
        std::uint64_t startTime = 0;
        // Under which it was announced; empty: not announced yet.
        std::string name;
        // Until when a change of its name is a launch.
        __CFRunLoop::Clock::time_point settled;
        // The round in which it was last there.
        std::uint64_t round = 0;
    };

    LaunchWatcher();

    void TimedOut() override;
    void LookForProcesses(bool announces);
    void Meet(pid_t pid, ino_t inode, bool announces);
    void LookForSession(bool announces);
    void Announce(pid_t pid);

    std::map<pid_t, Known> known;
    std::uint64_t round = 0;
    // The graphical session that was last seen active.
    std::string session;
};

}  // namespace frameworks
