#include "Support/HeldProcess.h"

#include <poll.h>
#include <sys/syscall.h>

#include <cerrno>
#include <csignal>
#include <optional>

namespace frameworks {

HeldProcess::HeldProcess(const ProcessStatus& itsProcess)
    : process(itsProcess), held(static_cast<int>(syscall(SYS_pidfd_open, itsProcess.pid, 0))) {}

bool HeldProcess::IsThere() const {
    const std::optional<ProcessStatus> now = StatusOf(process.pid);
    return now && now->startTime == process.startTime && !now->isZombie;
}

int HeldProcess::Signal(int signal) const {
    if (!IsThere()) return ESRCH;
    const long result = held.IsOpen()
                            ? syscall(SYS_pidfd_send_signal, held.Get(), signal, nullptr, 0)
                            : kill(process.pid, signal);
    return result == 0 ? 0 : errno;
}

bool HeldProcess::EndsWithin(std::chrono::milliseconds time) const {
    if (!IsThere()) return true;
    if (held.IsOpen()) {
        pollfd ended = {held.Get(), POLLIN, 0};
        poll(&ended, 1, static_cast<int>(time.count()));
    }
    return !IsThere();
}

}  // namespace frameworks
