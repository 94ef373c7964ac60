#include "tesselctl/Watch.h"

#include <poll.h>
#include <unistd.h>

#include <utility>

#include "tesselctl/ExitStatus.h"
#include "tesselctl/Terminal.h"

namespace tesselctl {
namespace {

// What a pipe that can be written takes without making the writer wait.
constexpr std::size_t kPieceSize = 4096;

bool IsGone(const pollfd& output) {
    return (output.revents & (POLLERR | POLLHUP | POLLNVAL)) != 0;
}

}  // namespace

bool Watch::TakeSignals() {
    bool stops = false;
    while (const std::optional<int> signal = signals.Take()) {
        if (*signal == SIGWINCH || *signal == SIGCONT) {
            resized = true;
            continue;
        }
        stops = true;
        if (*signal != SIGINT) endedBy = *signal;
    }
    return stops;
}

bool Watch::Stopped() {
    if (TakeSignals() && !stopped) {
        stopped = true;
        stoppedAt = std::chrono::steady_clock::now();
    }
    return stopped;
}

bool Watch::StoppedAgain() {
    constexpr std::chrono::milliseconds kMoment{500};
    return TakeSignals() && std::chrono::steady_clock::now() - stoppedAt > kMoment;
}

Watch::Woken Watch::Wait(int descriptor, Deadline deadline) {
    for (;;) {
        if (Stopped()) return Woken::kStopped;
        if (std::exchange(resized, false)) return Woken::kResized;
        pollfd polled[3] = {
            {descriptor, POLLIN, 0}, {signals.PollDescriptor(), POLLIN, 0}, {STDOUT_FILENO, 0, 0}};
        if (poll(polled, 3, deadline.PollTime()) <= 0) {
            if (deadline.Passed()) return Woken::kTime;
            continue;
        }
        if (IsGone(polled[2])) {
            stopped = true;
        } else if (polled[0].revents != 0 && !Stopped()) {
            return Woken::kReadable;
        }
    }
}

bool Watch::Say(std::string_view text) {
    while (!text.empty()) {
        pollfd polled[2] = {{STDOUT_FILENO, POLLOUT, 0}, {signals.PollDescriptor(), POLLIN, 0}};
        poll(polled, 2, -1);
        if (Stopped()) return false;
        if (polled[0].revents == 0) continue;
        const std::string_view piece = text.substr(0, kPieceSize);
        if (!tesselctl::Say(piece)) {
            stopped = true;
            return false;
        }
        text.remove_prefix(piece.size());
    }
    return true;
}

Interruption Watch::AsInterruption() {
    return {signals.PollDescriptor(), [this] { return Stopped(); }};
}

int Watch::ExitStatus() const {
    return endedBy == 0 ? static_cast<int>(kExitSuccess) : 128 + endedBy;
}

}  // namespace tesselctl
