// A library to preload: the C library's calls, of which some fail when a test says so (Control.h).
//
// Only what goes through the program's own table of calls is caught: what the C library does on its
// own behalf succeeds. Nothing here may ask for memory, and everything may run on any thread.
#include <dirent.h>
#include <dlfcn.h>
#include <execinfo.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <stdio_ext.h>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Control.h"

extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
}

namespace {

std::atomic<Control*> control{nullptr};

// The next definition of that name.
template <typename Function>
Function Real(Function /*type*/, const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

// A call of that name, with whoever else stands in for it.
#define REAL(name)                                   \
    ([]() -> decltype(&name) {                       \
        static const auto real = Real(&name, #name); \
        return real;                                 \
    }())

constexpr int kFrames = 24;

// Not ours, and written for systems that always have memory: what they do without it is no
// question to the service. docs/reliability.md names the places.
constexpr const char* kSparedLibraries[] = {"/libplist-2.0.so"};

// Of the C library: when it looks for its sources of users for the first time, it uses what it was
// refused.
constexpr char kSparedFunction[] = "getpwuid_r";

struct Callers {
    void* addresses[kFrames] = {};
    int count = backtrace(addresses, kFrames);
};

bool AreSpared(const Callers& callers) {
    for (int i = 0; i < callers.count; ++i) {
        Dl_info where = {};
        if (dladdr(callers.addresses[i], &where) == 0) {
            continue;
        }
        if (where.dli_sname != nullptr && std::strcmp(where.dli_sname, kSparedFunction) == 0) {
            return true;
        }
        for (const char* const library : kSparedLibraries) {
            if (std::strstr(where.dli_fname, library) != nullptr) {
                return true;
            }
        }
    }
    return false;
}

void Note(const Callers& callers, Control& page) {
    // This library's own frames.
    constexpr int kOwn = 3;
    for (int i = 0; i < 16; ++i) {
        Dl_info where = {};
        char* const text = page.callers[i];
        text[0] = '\0';
        if (i + kOwn < callers.count && dladdr(callers.addresses[i + kOwn], &where) != 0) {
            std::snprintf(text, sizeof page.callers[i], "%s+0x%zx", where.dli_fname,
                          static_cast<std::size_t>(static_cast<char*>(callers.addresses[i + kOwn]) -
                                                   static_cast<char*>(where.dli_fbase)));
        }
    }
}

// True, with errno, when this call has to fail.
bool Fails(CallKind kind) {
    Control* const page = control.load(std::memory_order_acquire);
    if (page == nullptr || page->kind.load() != kind || page->process.load() != getpid()) {
        return false;
    }
    const std::uint32_t number = ++page->calls;
    const std::uint32_t once = page->once;
    const std::uint32_t every = page->every;
    if (once != 0 ? number != once : every == 0 || number % every != 0) {
        return false;
    }
    if (kind == kMemory || once != 0) {
        const Callers callers;
        if (kind == kMemory && AreSpared(callers)) {
            ++page->spared;
            return false;
        }
        Note(callers, *page);
    }
    const std::uint32_t turn = page->failed++;
    int error = page->errors[0];
    int known = 0;
    while (known < 4 && page->errors[known] != 0) {
        ++known;
    }
    if (known != 0) {
        error = page->errors[turn % static_cast<std::uint32_t>(known)];
    }
    errno = error;
    return true;
}

bool IsFile(int descriptor) {
    struct stat status;
    const int before = errno;
    const bool file = fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
    errno = before;
    return file;
}

bool WriteFails(int descriptor) {
    return IsFile(descriptor) && Fails(kWrite);
}

// Writes half of what STREAM holds, and leaves it the rest, as a full disk does.
void WriteAHalf(std::FILE* stream) {
    const int before = errno;
    const std::size_t held = __fpending(stream);
    char* const start = stream->_IO_write_base;
    const std::size_t half = held / 2;
    if (half > 0) {
        const ssize_t written = REAL(write)(fileno(stream), start, half);
        if (written > 0) {
            // Byte by byte: ThreadSanitizer watches memmove, and does not know of the stream's
            // lock.
            for (char volatile* to = start; to < start + held - written; ++to) {
                *to = to[written];
            }
            stream->_IO_write_ptr -= written;
        }
    }
    errno = before;
}

bool StreamFails(std::FILE* stream) {
    if (stream == nullptr) {
        return false;
    }
    flockfile(stream);
    const bool fails = __fpending(stream) != 0 && IsFile(fileno(stream)) && Fails(kWrite);
    if (fails) {
        WriteAHalf(stream);
    }
    funlockfile(stream);
    return fails;
}

__attribute__((constructor)) void Start() {
    const char* const path = std::getenv(kControlVariable);
    if (path == nullptr) {
        return;
    }
    const int file = REAL(open)(path, O_RDWR | O_CLOEXEC);
    void* const page = mmap(nullptr, sizeof(Control), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    // Programs that the service starts are not what is tested.
    unsetenv("LD_PRELOAD");
    unsetenv(kControlVariable);
    if (page == MAP_FAILED) {
        return;
    }
    auto* const mapped = static_cast<Control*>(page);
    int nobody = 0;
    mapped->process.compare_exchange_strong(nobody, getpid());
    // Both may ask for memory the first time.
    REAL(write);
    void* nowhere = nullptr;
    backtrace(&nowhere, 1);
    control.store(mapped, std::memory_order_release);
}

mode_t ModeOf(int flags, std::va_list arguments) {
    return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
}

}  // namespace

extern "C" {

void* malloc(std::size_t size) noexcept {
    return Fails(kMemory) ? nullptr : __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) noexcept {
    return Fails(kMemory) ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* old, std::size_t size) noexcept {
    return Fails(kMemory) ? nullptr : __libc_realloc(old, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
    return Fails(kMemory) ? nullptr : __libc_memalign(alignment, size);
}

int posix_memalign(void** made, std::size_t alignment, std::size_t size) noexcept {
    if (Fails(kMemory)) {
        return ENOMEM;
    }
    *made = __libc_memalign(alignment, size);
    return *made == nullptr ? ENOMEM : 0;
}

int open(const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeOf(flags, arguments);
    va_end(arguments);
    return Fails(kOpen) ? -1 : REAL(open)(path, flags, mode);
}

int open64(const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeOf(flags, arguments);
    va_end(arguments);
    return Fails(kOpen) ? -1 : REAL(open64)(path, flags, mode);
}

int openat(int folder, const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeOf(flags, arguments);
    va_end(arguments);
    return Fails(kOpen) ? -1 : REAL(openat)(folder, path, flags, mode);
}

std::FILE* fopen(const char* path, const char* mode) {
    return Fails(kOpen) ? nullptr : REAL(fopen)(path, mode);
}

std::FILE* fopen64(const char* path, const char* mode) {
    return Fails(kOpen) ? nullptr : REAL(fopen64)(path, mode);
}

DIR* opendir(const char* path) {
    return Fails(kOpen) ? nullptr : REAL(opendir)(path);
}

ssize_t write(int descriptor, const void* bytes, std::size_t count) {
    if (WriteFails(descriptor)) {
        // In turn nothing at all and, as at the end of a disk's room, a part.
        const bool inPart = control.load()->failed % 2 == 0 && count > 1;
        return inPart ? REAL(write)(descriptor, bytes, count / 2) : -1;
    }
    return Fails(kInterrupt) ? -1 : REAL(write)(descriptor, bytes, count);
}

ssize_t writev(int descriptor, const iovec* parts, int count) {
    return WriteFails(descriptor) || Fails(kInterrupt) ? -1
                                                       : REAL(writev)(descriptor, parts, count);
}

int fflush(std::FILE* stream) {
    return StreamFails(stream) ? EOF : REAL(fflush)(stream);
}

int fclose(std::FILE* stream) {
    if (StreamFails(stream)) {
        const int error = errno;
        __fpurge(stream);
        REAL(fclose)(stream);
        errno = error;
        return EOF;
    }
    return REAL(fclose)(stream);
}

int rename(const char* from, const char* to) noexcept {
    return Fails(kRename) ? -1 : REAL(rename)(from, to);
}

int renameat(int from, const char* name, int to, const char* newName) noexcept {
    return Fails(kRename) ? -1 : REAL(renameat)(from, name, to, newName);
}

pid_t fork() noexcept {
    return Fails(kFork) ? -1 : REAL(fork)();
}

int posix_spawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes, char* const* arguments,
                char* const* environment) {
    return Fails(kFork) ? EAGAIN
                        : REAL(posix_spawn)(pid, path, actions, attributes, arguments, environment);
}

int posix_spawnp(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
                 const posix_spawnattr_t* attributes, char* const* arguments,
                 char* const* environment) {
    return Fails(kFork)
               ? EAGAIN
               : REAL(posix_spawnp)(pid, path, actions, attributes, arguments, environment);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                   void* argument) noexcept {
    return Fails(kFork) ? EAGAIN : REAL(pthread_create)(thread, attributes, start, argument);
}

int accept(int listener, sockaddr* address, socklen_t* length) {
    return Fails(kAccept) || Fails(kInterrupt) ? -1 : REAL(accept)(listener, address, length);
}

int accept4(int listener, sockaddr* address, socklen_t* length, int flags) {
    return Fails(kAccept) || Fails(kInterrupt) ? -1
                                               : REAL(accept4)(listener, address, length, flags);
}

ssize_t read(int descriptor, void* buffer, std::size_t size) {
    return Fails(kInterrupt) ? -1 : REAL(read)(descriptor, buffer, size);
}

ssize_t recv(int socket, void* buffer, std::size_t size, int flags) {
    return Fails(kInterrupt) ? -1 : REAL(recv)(socket, buffer, size, flags);
}

ssize_t send(int socket, const void* bytes, std::size_t count, int flags) {
    return Fails(kInterrupt) ? -1 : REAL(send)(socket, bytes, count, flags);
}

int poll(pollfd* waited, nfds_t count, int milliseconds) {
    return Fails(kInterrupt) ? -1 : REAL(poll)(waited, count, milliseconds);
}

int epoll_wait(int waiter, epoll_event* events, int most, int milliseconds) {
    return Fails(kInterrupt) ? -1 : REAL(epoll_wait)(waiter, events, most, milliseconds);
}
}
