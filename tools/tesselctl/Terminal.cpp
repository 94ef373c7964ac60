#include "tesselctl/Terminal.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace tesselctl {
namespace {

enum class State { kWorks, kReaderGone, kBroken };
State state = State::kWorks;

// Everything, or the errno that stopped it. A non-blocking terminal is waited for.
int WriteAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(fd, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN) {
            pollfd polled{fd, POLLOUT, 0};
            poll(&polled, 1, -1);
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

}  // namespace

bool Say(std::string_view text) {
    if (state != State::kWorks) return false;
    const int error = WriteAll(STDOUT_FILENO, text);
    if (error == 0) return true;
    state = error == EPIPE ? State::kReaderGone : State::kBroken;
    if (state == State::kBroken)
        Complain(std::string("cannot write to standard output: ") + std::strerror(error));
    return false;
}

void Complain(std::string_view text) {
    WriteAll(STDERR_FILENO, "tesselctl: " + std::string(text) + '\n');
}

bool OutputIsSeen() {
    return isatty(STDOUT_FILENO) != 0;
}

bool OutputIsTerminal() {
    const char* const type = std::getenv("TERM");
    return OutputIsSeen() && type != nullptr && *type != '\0' && std::strcmp(type, "dumb") != 0;
}

std::size_t TerminalWidth() {
    constexpr std::size_t kUsual = 80;
    winsize size{};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsual;
}

bool EverythingSaid() {
    return state != State::kBroken;
}

}  // namespace tesselctl
