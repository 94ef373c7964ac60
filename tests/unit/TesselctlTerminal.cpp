#include "unit/TesselctlTerminal.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "unit/TesselctlTesting.h"

namespace tesselctltest {

Terminal::Terminal(const std::string& home, std::vector<std::string> arguments,
                   const std::map<std::string, std::string>& environment) {
    const winsize size{24, 100, 0, 0};
    arguments.insert(arguments.begin(), "tesselctl");
    std::vector<char*> argv;
    for (std::string& argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    child = forkpty(&master, nullptr, nullptr, &size);
    if (child != 0) return;
    setenv("TERM", "vt100", 1);
    setenv("HOME", home.c_str(), 1);
    for (const char* const name : {"XDG_STATE_HOME", "LANG", "LC_ALL", "LC_CTYPE"})
        unsetenv(name);
    for (const auto& [name, value] : environment)
        setenv(name.c_str(), value.c_str(), 1);
    execv(TESSELCTL_PROGRAM, argv.data());
    _exit(127);
}

Terminal::~Terminal() {
    if (child > 0) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    if (master != -1) close(master);
}

void Terminal::Type(const std::string& keys) {
    EXPECT_EQ(static_cast<ssize_t>(keys.size()), write(master, keys.data(), keys.size()));
}

void Terminal::Resize(unsigned short rows, unsigned short columns) {
    const winsize size{rows, columns, 0, 0};
    EXPECT_EQ(0, ioctl(master, TIOCSWINSZ, &size));
}

bool Terminal::ReadMore(int milliseconds) {
    pollfd polled{master, POLLIN, 0};
    poll(&polled, 1, milliseconds);
    if (polled.revents == 0) return true;
    char bytes[4096];
    const ssize_t got = read(master, bytes, sizeof bytes);
    if (got > 0) screen.append(bytes, static_cast<std::size_t>(got));
    return got > 0 || errno == EINTR || errno == EAGAIN;
}

void Terminal::WaitFor(const std::string& text) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    for (bool goesOn = true;;) {
        const std::size_t found = screen.find(text, seen);
        if (found != std::string::npos) {
            seen = found + text.size();
            return;
        }
        if (!goesOn || std::chrono::steady_clock::now() > deadline) {
            ADD_FAILURE() << "\"" << text << "\" did not appear in:\n" << screen.substr(seen);
            return;
        }
        goesOn = ReadMore(100);
    }
}

int Terminal::WaitForEnd() {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) return -1;
        if (!ReadMore(10)) usleep(1000);
    }
    child = -1;
    // What was written last waits in the terminal.
    for (std::size_t before = screen.size() + 1; before != screen.size();) {
        before = screen.size();
        ReadMore(0);
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

bool Terminal::IsLineMode() const {
    termios modes{};
    return tcgetattr(master, &modes) == 0 && (modes.c_lflag & ICANON) != 0;
}

void Terminal::Signal(int signal) const {
    kill(child, signal);
}

}  // namespace tesselctltest
