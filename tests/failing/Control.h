// What a test tells the library that makes calls fail, and what that tells the test: one page that
// both have mapped, from a file in the sandbox. Fields are changed and read at any time.
//
// Everything about a failure but `kind` is to be written before `kind` is.
#pragma once

#include <atomic>
#include <cstdint>

// The variable that names the file.
constexpr char kControlVariable[] = "FAILING_CALLS";

enum CallKind : int {
    kNothing,
    // malloc and its relatives; "new" with them.
    kMemory,
    // Of files: open, openat, fopen.
    kOpen,
    // To files: write, and the streams' fflush and fclose, which then have written a half.
    kWrite,
    kRename,
    // fork, posix_spawn, pthread_create.
    kFork,
    kAccept,
    // A signal comes in the midst: read, write, recv, send, poll, epoll_wait, accept.
    kInterrupt,
    kKinds
};

struct Control {
    // The first process that has mapped the page, and the only one whose calls fail.
    std::atomic<int> process;
    std::atomic<int> kind;
    // Every call of this number fails.
    std::atomic<std::uint32_t> every;
    // Only the one call of this number fails, when it is not 0.
    std::atomic<std::uint32_t> once;
    // The error of a call that fails, in turn; 0 ends the list.
    std::atomic<int> errors[4];
    // Since the kind was last set by the test, who sets these to 0 as well.
    std::atomic<std::uint32_t> calls;
    std::atomic<std::uint32_t> failed;
    // Calls that would have failed, had they not been made by a library that cannot do without.
    std::atomic<std::uint32_t> spared;
    // Who has made the one call that failed last, from the inside to the outside: "FILE+OFFSET",
    // for addr2line.
    char callers[16][128];
};
