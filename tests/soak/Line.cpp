#include "Line.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>

bool Line::Send(const std::string& bytes) {
    unsent += bytes;
    return SendTheRest();
}

bool Line::SendTheRest() {
    while (!unsent.empty()) {
        const ssize_t count = send(socket.Get(), unsent.data(), unsent.size(), MSG_NOSIGNAL);
        if (count >= 0) {
            unsent.erase(0, static_cast<std::size_t>(count));
        } else if (errno == EAGAIN) {
            return true;
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

bool Line::Read() {
    char buffer[32768];
    for (;;) {
        const ssize_t count = recv(socket.Get(), buffer, sizeof buffer, MSG_DONTWAIT);
        if (count > 0) {
            input.append(buffer, static_cast<std::size_t>(count));
        } else if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
            return false;
        } else if (errno == EAGAIN) {
            return true;
        }
    }
}

void Line::WaitForInput(int milliseconds) const {
    pollfd waited = {socket.Get(), POLLIN, 0};
    poll(&waited, 1, milliseconds);
}

std::optional<std::string> Line::Next() {
    const std::size_t bar = input.find('|', taken);
    if (bar == std::string::npos) {
        input.erase(0, taken);
        taken = 0;
        return std::nullopt;
    }
    std::string message = input.substr(taken, bar - taken);
    taken = bar + 1;
    return message;
}

std::string& Line::Input() {
    input.erase(0, taken);
    taken = 0;
    return input;
}

void Line::Reset() {
    const linger atOnce = {1, 0};
    setsockopt(socket.Get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    socket.Close();
}

void Line::ShutDownSending() {
    shutdown(socket.Get(), SHUT_WR);
}
