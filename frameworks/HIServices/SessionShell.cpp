#include "HIServices/SessionShell.h"

#include <mutex>

namespace frameworks {
namespace {

std::mutex guard;
pid_t shellPid = 0;
std::uint64_t shellStartTime = 0;

}  // namespace

void NameSessionShell(pid_t pid, std::uint64_t startTime) {
    const std::lock_guard<std::mutex> lock(guard);
    shellPid = pid;
    shellStartTime = startTime;
}

bool IsSessionShell(pid_t pid, std::uint64_t startTime) {
    const std::lock_guard<std::mutex> lock(guard);
    return pid != 0 && pid == shellPid && startTime == shellStartTime;
}

}  // namespace frameworks
