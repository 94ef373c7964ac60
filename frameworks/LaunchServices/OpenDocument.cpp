#include <CarbonCore/MacErrors.h>
#include <LaunchServices/LSInfo.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <chrono>
#include <optional>

#include "LaunchServices/Launch.h"
#include "Support/DetachedProgram.h"
#include "Support/JournalStream.h"
#include "Support/UserEnvironment.h"

namespace frameworks {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kLongestWait{3};

// Runs the program that is its name on its argument, and writes what it ended with.
constexpr char kRunAndTell[] = "\"$0\" \"$1\" >&2; echo $?";

// What xdg-open ends with.
constexpr int kDone = 0;
constexpr int kNoSuchFile = 2;

OSStatus StatusOfEnd(int code) {
    switch (code) {
        case kDone:
            return noErr;
        case kNoSuchFile:
            return fnfErr;
        default:
            // Nothing to open it with, or what there was has failed.
            return kLSApplicationNotFoundErr;
    }
}

// The number that is written to PIPE. Nothing when that takes too long.
std::optional<int> WaitForNumber(int pipe) {
    const Clock::time_point end = Clock::now() + kLongestWait;
    std::string text;
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
        pollfd waited = {pipe, POLLIN, 0};
        if (left.count() <= 0) return std::nullopt;
        const int ready = poll(&waited, 1, static_cast<int>(left.count()));
        if (ready == -1 && errno == EINTR) continue;
        // Without an answer of poll's, reading might wait for as long as the opener stays.
        if (ready <= 0) return std::nullopt;
        char piece[16];
        const ssize_t length = read(pipe, piece, sizeof piece);
        if (length > 0) {
            text.append(piece, static_cast<std::size_t>(length));
        } else if (length == 0 || errno != EINTR) {
            break;
        }
    }
    int number = -1;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

}  // namespace

OSStatus OpenDocument(const std::string& path) {
    DetachedProgram program;
    program.environment = EnvironmentOfUser();
    const std::string opener = FindProgram(program.environment, "xdg-open");
    if (opener.empty()) return kLSServerCommunicationErr;
    program.words = {"/bin/sh", "-c", kRunAndTell, opener, path};
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return kLSUnknownErr;
    const UniqueDescriptor ours(ends[0]);
    UniqueDescriptor theirs(ends[1]);
    const UniqueDescriptor journal = OpenJournalStream("xdg-open");
    program.output = theirs.Get();
    program.errors = journal.Get();
    if (StartDetached(program) != 0) return kLSUnknownErr;
    theirs.Close();
    const std::optional<int> code = WaitForNumber(ours.Get());
    return code ? StatusOfEnd(*code) : static_cast<OSStatus>(noErr);
}

}  // namespace frameworks
