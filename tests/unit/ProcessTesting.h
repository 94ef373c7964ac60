// What the tests of processes share: programs of any name, and a machine of one's own, as far as
// the kernel gives one, to try in what would touch everybody's.
//
// Nothing here waits longer than kPatience.
#pragma once

#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "FilesTesting.h"
#include "Support/Proc.h"

namespace processtest {

constexpr std::chrono::seconds kPatience{20};

template <typename Condition>
bool BecomesTrue(const Condition& condition) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// A child process that is ended and waited for when its owner goes.
class Child {
  public:
    explicit Child(pid_t itsPid) : pid(itsPid) {}
    Child(Child&& other) noexcept : pid(std::exchange(other.pid, -1)) {}
    Child& operator=(Child&&) = delete;
    ~Child() {
        if (pid > 0) {
            End();
            Collect();
        }
    }

    pid_t Pid() const { return pid; }
    // To be ended and waited for by the caller.
    pid_t Leak() { return std::exchange(pid, -1); }
    void End() const { kill(pid, SIGKILL); }
    void Collect() {
        while (waitpid(pid, nullptr, 0) == -1 && errno == EINTR) {
        }
        pid = -1;
    }

  private:
    pid_t pid;
};

// The program may still go by the name of what started it when this returns.
inline Child Start(const std::string& path, std::vector<std::string> words = {"60"}) {
    words.insert(words.begin(), path);
    std::vector<char*> pointers;
    for (std::string& word : words) {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);
    pid_t pid = -1;
    EXPECT_EQ(posix_spawn(&pid, path.c_str(), nullptr, nullptr, pointers.data(), environ), 0)
        << path;
    return Child(pid);
}

// Returns when CHILD runs the program of that name (of 15 bytes at the most).
inline void ExpectProgram(const Child& child, const std::string& name) {
    EXPECT_TRUE(BecomesTrue([&] {
        const auto status = frameworks::StatusOf(child.Pid());
        return status && status->name == name;
    })) << name;
}

// A copy of sleep that goes by another name.
inline std::string MakeSleeper(const filestest::TemporaryFolder& folder, const std::string& name) {
    const std::string path = folder / name;
    std::filesystem::copy_file("/bin/sleep", path);
    return path;
}

inline std::string MakeScript(const filestest::TemporaryFolder& folder, const std::string& name,
                              const std::string& text) {
    const std::string path = folder / name;
    filestest::WriteFile(path, text);
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    return path;
}

// Runs WORK in a process with mounts of its own, so that what is mounted is seen by nobody else.
// False, without running it, where the kernel does not let us.
inline bool WithOwnMounts(const std::function<void()>& work, int more = 0) {
    const auto enter = [more] {
        const uid_t user = geteuid();
        const gid_t group = getegid();
        if (unshare(CLONE_NEWNS | more | (user == 0 ? 0 : CLONE_NEWUSER)) != 0) return false;
        if (user != 0) {
            std::ofstream("/proc/self/setgroups") << "deny";
            std::ofstream("/proc/self/uid_map") << "0 " << user << " 1";
            std::ofstream("/proc/self/gid_map") << "0 " << group << " 1";
        }
        return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
               mount("none", "/run", "tmpfs", 0, nullptr) == 0;
    };
    const pid_t probe = fork();
    if (probe == 0) _exit(enter() ? 0 : 1);
    int status = 1;
    waitpid(probe, &status, 0);
    if (status != 0) return false;
    filestest::InAChild([&] {
        EXPECT_TRUE(enter());
        work();
    });
    return true;
}

// The same with a process table of its own, in which WORK has the number 1.
inline bool WithOwnProcesses(const std::function<void()>& work) {
    return WithOwnMounts(
        [&work] {
            filestest::InAChild([&work] {
                EXPECT_EQ(mount("none", "/proc", "proc", 0, nullptr), 0);
                work();
            });
        },
        CLONE_NEWPID);
}

}  // namespace processtest
