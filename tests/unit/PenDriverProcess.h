// The driver as a process of its own, for tests. It is killed if it has not ended with the test.
#pragma once

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

#include "driver/Descriptor.h"

class Driver {
  public:
    static constexpr uid_t kMyself = static_cast<uid_t>(-1);

    // Another USER's is in no group but that of the same number; only root may choose.
    explicit Driver(const std::vector<std::string>& words, uid_t user = kMyself) {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        pid = fork();
        EXPECT_NE(pid, -1);
        if (pid == 0) {
            dup2(ends[1], STDOUT_FILENO);
            dup2(ends[1], STDERR_FILENO);
            if (user != kMyself &&
                (setgroups(0, nullptr) != 0 || setgid(user) != 0 || setuid(user) != 0)) {
                _exit(126);
            }
            std::vector<char*> argv = {const_cast<char*>("StylusPadDriver")};
            for (const std::string& word : words) {
                argv.push_back(const_cast<char*>(word.c_str()));
            }
            argv.push_back(nullptr);
            execv(STYLUSPAD_PROGRAM, argv.data());
            _exit(127);
        }
        close(ends[1]);
        said = driver::Descriptor(ends[0]);
    }
    Driver(const Driver&) = delete;
    Driver& operator=(const Driver&) = delete;
    ~Driver() {
        if (!ended && pid > 0) {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
    }

    pid_t Pid() const { return pid; }

    // Its exit status, or minus the signal that ended it.
    int Wait() {
        int status = 0;
        waitpid(pid, &status, 0);
        ended = true;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    // All that it has said, to its end.
    std::string Said() {
        while (Hear(-1)) {
        }
        return text;
    }
    // What it says next, with its line feed; less when that does not come in time.
    std::string Line() {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        std::size_t end = text.find('\n');
        while (end == std::string::npos && std::chrono::steady_clock::now() < deadline) {
            if (!Hear(100)) break;
            end = text.find('\n');
        }
        const std::string line = text.substr(0, end == std::string::npos ? end : end + 1);
        text.erase(0, line.size());
        return line;
    }

  private:
    // False at the end.
    bool Hear(int milliseconds) {
        pollfd state{said.Get(), POLLIN, 0};
        if (poll(&state, 1, milliseconds) == 0) return true;
        char bytes[4096];
        const ssize_t length = read(said.Get(), bytes, sizeof bytes);
        if (length <= 0) return false;
        text.append(bytes, static_cast<std::size_t>(length));
        return true;
    }

    pid_t pid = -1;
    bool ended = false;
    driver::Descriptor said;
    // What has not been asked for yet.
    std::string text;
};
