// Processes as /proc tells of them.
//
// Threads: any. Failure: a process that has gone, or was never there, is nothing. Times are in the
// kernel's clock ticks since it started.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace frameworks {

struct ProcessStatus {
    pid_t pid;
    // As the kernel keeps it: the program's name, cut at 15 bytes.
    std::string name;
    // A thread of the kernel's own, not a program.
    bool isKernelThread;
    // A copy of its parent which has not started a program of its own (yet).
    bool isMereCopy;
    bool isZombie;
    // Tells two processes apart that had the same number one after the other.
    std::uint64_t startTime;
};

std::optional<ProcessStatus> StatusOf(pid_t pid);

// What stands in a process's status line, taken apart. Nothing when it is no such line.
std::optional<ProcessStatus> ParseStatus(const std::string& line);

// The name in full. Where the kernel cut it, the name of the program's file is taken, or that of
// the script which the program runs, if it begins with what the kernel kept.
std::string FullNameOf(const ProcessStatus& process);

// The path of the program's file, or of the script that it runs. Empty when that is not for us to
// see, as with most processes of other users.
std::string ProgramOf(const ProcessStatus& process);

// With whose rights it acts.
std::optional<uid_t> UserOfProcess(pid_t pid);

// Calls VISIT for every process with its number and the inode of its folder in /proc. While a
// process lives its folder usually keeps its inode, and no two processes' folders share one, so an
// inode that has not changed spares reading the status.
void ForEachProcess(const std::function<void(pid_t pid, ino_t inode)>& visit);

}  // namespace frameworks
