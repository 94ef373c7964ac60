#include "Security/Elevation.h"

#include <Security/Authorization.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <utility>

#include "Support/ChildProcess.h"
#include "Support/UserEnvironment.h"

namespace frameworks {
namespace {

constexpr int kDismissed = 126;
constexpr int kRefused = 127;

// What the shell behind sudo writes when it has been let in.
constexpr std::string_view kLetIn = "\n";
constexpr char kWriteAndRun[] = "echo && exec \"$@\"";

enum class Means { kNone, kRoot, kPkexec, kSudo };

struct Way {
    Means means = Means::kNone;
    std::string program;
};

Way FindWay(const Environment& environment) {
    if (geteuid() == 0) return {Means::kRoot, {}};
    for (const auto& [means, name] :
         {std::pair(Means::kPkexec, "pkexec"), {Means::kSudo, "sudo"}}) {
        std::string program = FindProgram(environment, name);
        if (!program.empty()) return {means, std::move(program)};
    }
    return {};
}

std::vector<std::string> WordsBefore(const Way& way, const Environment& environment) {
    switch (way.means) {
        case Means::kPkexec:
            // A path among the words may start from the folder in which this process is.
            return {way.program, "--disable-internal-agent", "--keep-cwd"};
        case Means::kSudo: {
            // Without a program that could ask, sudo must not wait for a terminal.
            const bool canAsk = !ValueIn(environment, "SUDO_ASKPASS").empty();
            return {way.program, canAsk ? "-A" : "-n", "--", "/bin/sh", "-c", kWriteAndRun, "sh"};
        }
        case Means::kNone:
        case Means::kRoot:
            break;
    }
    return {};
}

// Whether there is something to read; false at the end.
bool WaitForOutput(int output) {
    pollfd waited = {output, POLLIN, 0};
    while (poll(&waited, 1, -1) == -1 && errno == EINTR) {
    }
    return (waited.revents & POLLIN) != 0;
}

// Reads the line that the shell writes first. False when there was none.
bool TakeLetIn(int output) {
    char byte = 0;
    ssize_t length = 0;
    do {
        length = read(output, &byte, 1);
    } while (length == -1 && errno == EINTR);
    return length == 1 && byte == kLetIn.front();
}

OSStatus StatusOfPkexec(int status) {
    if (!WIFEXITED(status)) return errAuthorizationSuccess;
    switch (WEXITSTATUS(status)) {
        case kDismissed:
            return errAuthorizationCanceled;
        case kRefused:
            return errAuthorizationDenied;
        default:
            return errAuthorizationSuccess;
    }
}

// Waits for the answer. The child has been waited for where it is set to -1.
OSStatus WaitForAnswer(Means means, ElevatedTool& tool) {
    switch (means) {
        case Means::kPkexec:
            if (WaitForOutput(tool.output.Get())) return errAuthorizationSuccess;
            return StatusOfPkexec(WaitForChild(std::exchange(tool.child, -1)));
        case Means::kSudo:
            if (TakeLetIn(tool.output.Get())) return errAuthorizationSuccess;
            WaitForChild(std::exchange(tool.child, -1));
            return errAuthorizationDenied;
        case Means::kNone:
        case Means::kRoot:
            break;
    }
    return errAuthorizationSuccess;
}

}  // namespace

bool CanElevate() {
    return FindWay(EnvironmentOfUser()).means != Means::kNone;
}

OSStatus RunElevated(const std::vector<std::string>& words, ElevatedTool& tool) {
    const Environment environment = EnvironmentOfUser();
    const Way way = FindWay(environment);
    if (way.means == Means::kNone) return errAuthorizationInteractionNotAllowed;
    std::vector<std::string> all = WordsBefore(way, environment);
    all.insert(all.end(), words.begin(), words.end());
    int ends[2];
    const UniqueDescriptor nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
    if (!nothing.IsOpen() || pipe2(ends, O_CLOEXEC) != 0) return errAuthorizationInternal;
    tool.output = UniqueDescriptor(ends[0]);
    UniqueDescriptor theirs(ends[1]);
    tool.child = StartProgram(all, environment, nothing.Get(), theirs.Get());
    if (tool.child == -1) return errAuthorizationToolExecuteFailure;
    theirs.Close();
    return WaitForAnswer(way.means, tool);
}

}  // namespace frameworks
