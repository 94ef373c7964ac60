// popen and pclose as on the Mac, in place of the C library's.
//
// Modes: "r", "w", and "r+" (also "w+"), which reads and writes over a pair of sockets; an "e"
// behind them says what is always so here: the stream's descriptor is close-on-exec. Any other mode
// is EINVAL. The command gets the standard descriptors only. pclose waits for that command and
// gives its status; -1 for a stream that is not popen's, or was closed already.
//
// Why our own: the C library's refuses "r+", and starts the command with every descriptor that
// somebody forgot to mark. Sanitizers bring a popen of their own in a shared library, which a
// linker would take before it looks into an archive; the build therefore asks for the name at the
// end of this file, which only stands here.
//
// Threads: any, several streams at a time. Failure: null or -1 with errno.
#include <fcntl.h>
#include <stdio.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <list>
#include <mutex>
#include <new>

#include "Support/ChildProcess.h"
#include "Support/UniqueDescriptor.h"

namespace {

using frameworks::UniqueDescriptor;

struct OpenStream {
    FILE* stream;
    pid_t child;
};

struct Registry {
    std::mutex mutex;
    std::list<OpenStream> streams;
};

Registry& TheRegistry() {
    static Registry& registry = *new Registry();
    return registry;
}

enum class Direction { kRead, kWrite, kBoth };

bool ParseMode(const char* mode, Direction& direction) {
    if (*mode != 'r' && *mode != 'w') return false;
    direction = *mode == 'r' ? Direction::kRead : Direction::kWrite;
    for (const char* more = mode + 1; *more != '\0'; ++more) {
        if (*more == '+') {
            direction = Direction::kBoth;
        } else if (*more != 'e') {
            return false;
        }
    }
    return true;
}

struct Ends {
    UniqueDescriptor ours;
    UniqueDescriptor theirs;
};

bool MakeEnds(Direction direction, Ends& ends) {
    int pair[2];
    if (direction == Direction::kBoth) {
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) return false;
    } else if (pipe2(pair, O_CLOEXEC) != 0) {
        return false;
    }
    // Of a pipe, the first is the one to read from.
    const bool oursIsFirst = direction != Direction::kWrite;
    ends.ours = UniqueDescriptor(pair[oursIsFirst ? 0 : 1]);
    ends.theirs = UniqueDescriptor(pair[oursIsFirst ? 1 : 0]);
    return true;
}

const char* StreamMode(Direction direction) {
    switch (direction) {
        case Direction::kRead:
            return "r";
        case Direction::kWrite:
            return "w";
        case Direction::kBoth:
            break;
    }
    return "r+";
}

FILE* Open(const char* command, const char* mode) {
    Direction direction;
    if (command == nullptr || mode == nullptr || !ParseMode(mode, direction)) {
        errno = EINVAL;
        return nullptr;
    }
    Ends ends;
    if (!MakeEnds(direction, ends)) return nullptr;
    // The entry before the child, the stream before the child: what can fail comes while there is
    // nothing to undo.
    std::list<OpenStream> entry(1);
    FILE* const stream = fdopen(ends.ours.Get(), StreamMode(direction));
    if (stream == nullptr) return nullptr;
    ends.ours.Leak();
    const pid_t child =
        frameworks::StartShell(command, direction == Direction::kRead ? -1 : ends.theirs.Get(),
                               direction == Direction::kWrite ? -1 : ends.theirs.Get());
    if (child == -1) {
        const int error = errno;
        fclose(stream);  // NOLINT(cert-err33-c): nothing has been written to it
        errno = error;
        return nullptr;
    }
    entry.front() = OpenStream{stream, child};
    Registry& registry = TheRegistry();
    const std::lock_guard<std::mutex> lock(registry.mutex);
    registry.streams.splice(registry.streams.end(), entry);
    return stream;
}

// The command behind STREAM, which is forgotten; -1 when there is none.
pid_t Forget(FILE* stream) {
    Registry& registry = TheRegistry();
    const std::lock_guard<std::mutex> lock(registry.mutex);
    for (auto entry = registry.streams.begin(); entry != registry.streams.end(); ++entry) {
        if (entry->stream == stream) {
            const pid_t child = entry->child;
            registry.streams.erase(entry);
            return child;
        }
    }
    return -1;
}

}  // namespace

extern "C" {

extern const int FrameworksBringTheirOwnPopen;
const int FrameworksBringTheirOwnPopen = 1;

FILE* popen(const char* command, const char* mode) {
    try {
        return Open(command, mode);
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        return nullptr;
    }
}

int pclose(FILE* stream) {
    const pid_t child = Forget(stream);
    if (child == -1) {
        errno = EINVAL;
        return -1;
    }
    // First the stream, or a command that reads to the end would be waited for for ever.
    // NOLINTNEXTLINE(cert-err33-c): the command is the one to say that it has not read everything
    fclose(stream);
    return frameworks::WaitForChild(child);
}

}  // extern "C"
