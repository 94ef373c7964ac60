#include "Support/Proc.h"

#include <dirent.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <memory>
#include <string_view>

#include "Support/ReadFile.h"

namespace frameworks {
namespace {

// From the kernel's list of a task's flags.
constexpr unsigned long kForkedWithoutExec = 0x00000040;
constexpr unsigned long kKernelThread = 0x00200000;

constexpr std::size_t kLongestKernelName = 15;

std::string FileOf(pid_t pid, const char* file) {
    return "/proc/" + std::to_string(pid) + "/" + file;
}

std::string_view LastComponent(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

bool BeginsWith(std::string_view text, std::string_view beginning) {
    return text.substr(0, beginning.size()) == beginning;
}

// Whether the kernel's name of a process, which it may have cut, is that of the file at PATH.
bool IsNameOf(std::string_view path, std::string_view kernelName) {
    const std::string_view file = LastComponent(path);
    return kernelName.size() < kLongestKernelName ? file == kernelName
                                                  : BeginsWith(file, kernelName);
}

// What a link in a process's folder leads to. Empty when that is not for us to see.
std::string LinkOf(pid_t pid, const char* link) {
    char target[PATH_MAX];
    const ssize_t length = readlink(FileOf(pid, link).c_str(), target, sizeof target);
    return length <= 0 ? std::string() : std::string(target, static_cast<std::size_t>(length));
}

std::string CurrentFolderOf(pid_t pid) {
    return LinkOf(pid, "cwd");
}

std::string ExecutableOf(pid_t pid) {
    std::string path = LinkOf(pid, "exe");
    // What the kernel puts behind the name of a file that has been replaced by an update.
    const std::string_view deleted = " (deleted)";
    if (path.size() > deleted.size() &&
        std::string_view(path).substr(path.size() - deleted.size()) == deleted &&
        access(path.c_str(), F_OK) != 0) {
        path.resize(path.size() - deleted.size());
    }
    return path;
}

// The script that a process runs, as it was named to the interpreter; the kernel has called the
// process by it. Empty when there is none.
std::string ScriptOf(const ProcessStatus& process) {
    const std::string words = ReadFile(FileOf(process.pid, "cmdline").c_str()).value_or("");
    std::string_view rest = words;
    // The program, or the script that it was given: "/bin/sh", "-e", "/usr/bin/script".
    for (int word = 0; word < 3 && !rest.empty(); ++word) {
        const std::size_t end = std::min(rest.find('\0'), rest.size());
        if (IsNameOf(rest.substr(0, end), process.name)) {
            return std::string(rest.substr(0, end));
        }
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return std::string();
}

// Takes the next number off the front of REST.
template <typename Number>
bool TakeNumber(std::string_view& rest, Number& number) {
    while (!rest.empty() && rest.front() == ' ') {
        rest.remove_prefix(1);
    }
    const auto result = std::from_chars(rest.data(), rest.data() + rest.size(), number);
    if (result.ec != std::errc()) {
        return false;
    }
    rest.remove_prefix(static_cast<std::size_t>(result.ptr - rest.data()));
    return true;
}

bool SkipNumbers(std::string_view& rest, int count) {
    for (long long skipped = 0; count > 0; --count) {
        if (!TakeNumber(rest, skipped)) {
            return false;
        }
    }
    return true;
}

}  // namespace

std::optional<ProcessStatus> ParseStatus(const std::string& line) {
    // The name stands in parentheses and may hold parentheses itself; no other field can.
    const std::size_t open = line.find('(');
    const std::size_t close = line.rfind(')');
    if (open == std::string::npos || close == std::string::npos || close < open ||
        close + 4 > line.size()) {
        return std::nullopt;
    }
    ProcessStatus process;
    std::string_view head(line.data(), open);
    if (!TakeNumber(head, process.pid)) {
        return std::nullopt;
    }
    process.name = line.substr(open + 1, close - open - 1);
    const char state = line[close + 2];
    process.isZombie = state == 'Z' || state == 'X';
    std::string_view rest = std::string_view(line).substr(close + 3);
    unsigned long flags = 0;
    // Between the state and the flags: parent, group, session, terminal, its foreground group.
    // Between the flags and the start: faults, times, priorities, threads and a zero.
    if (!SkipNumbers(rest, 5) || !TakeNumber(rest, flags) || !SkipNumbers(rest, 12) ||
        !TakeNumber(rest, process.startTime)) {
        return std::nullopt;
    }
    process.isMereCopy = (flags & kForkedWithoutExec) != 0;
    process.isKernelThread = (flags & kKernelThread) != 0;
    return process;
}

std::optional<uid_t> UserOfProcess(pid_t pid) {
    struct stat folder;
    if (stat(FileOf(pid, "").c_str(), &folder) != 0) return std::nullopt;
    if (folder.st_uid != 0) return folder.st_uid;
    // It is also root's when the process wants not to be looked into.
    const std::string status = ReadFile(FileOf(pid, "status").c_str()).value_or("");
    const std::string_view heading = "\nUid:";
    const std::size_t users = status.find(heading);
    if (users == std::string::npos) return std::nullopt;
    std::string rest = status.substr(users + heading.size());
    std::replace(rest.begin(), rest.end(), '\t', ' ');
    std::string_view numbers = rest;
    uid_t user = 0;
    // The real one, and the effective one.
    if (!TakeNumber(numbers, user) || !TakeNumber(numbers, user)) return std::nullopt;
    return user;
}

std::optional<ProcessStatus> StatusOf(pid_t pid) {
    const std::optional<std::string> line = ReadFile(FileOf(pid, "stat").c_str());
    return line ? ParseStatus(*line) : std::nullopt;
}

std::string FullNameOf(const ProcessStatus& process) {
    if (process.name.size() < kLongestKernelName) {
        return process.name;
    }
    const std::string executable = ExecutableOf(process.pid);
    if (IsNameOf(executable, process.name)) {
        return std::string(LastComponent(executable));
    }
    const std::string script = ScriptOf(process);
    return script.empty() ? process.name : std::string(LastComponent(script));
}

std::string ProgramOf(const ProcessStatus& process) {
    std::string executable = ExecutableOf(process.pid);
    // What a process says of itself is believed of those whom we could ask the kernel about.
    if (executable.empty() || IsNameOf(executable, process.name)) {
        return executable;
    }
    const std::string script = ScriptOf(process);
    if (script.empty()) {
        return executable;
    }
    return script.front() == '/' ? script : CurrentFolderOf(process.pid) + "/" + script;
}

void ForEachProcess(const std::function<void(pid_t pid, ino_t inode)>& visit) {
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir("/proc"), closedir);
    if (!folder) {
        return;
    }
    while (const dirent* const entry = readdir(folder.get())) {
        pid_t pid = 0;
        const char* const end = entry->d_name + std::strlen(entry->d_name);
        const auto result = std::from_chars(entry->d_name, end, pid);
        if (result.ec == std::errc() && result.ptr == end && pid > 0) {
            visit(pid, entry->d_ino);
        }
    }
}

}  // namespace frameworks
