#include "Support/ChildProcess.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

namespace frameworks {
namespace {

struct Actions {
    Actions() { posix_spawn_file_actions_init(&list); }
    Actions(const Actions&) = delete;
    Actions& operator=(const Actions&) = delete;
    ~Actions() { posix_spawn_file_actions_destroy(&list); }

    posix_spawn_file_actions_t list;
};

struct Attributes {
    Attributes() { posix_spawnattr_init(&list); }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;
    ~Attributes() { posix_spawnattr_destroy(&list); }

    posix_spawnattr_t list;
};

}  // namespace

pid_t StartShell(const char* commandLine, int input, int output) {
    Actions actions;
    int error = 0;
    if (input != -1) {
        error = posix_spawn_file_actions_adddup2(&actions.list, input, STDIN_FILENO);
    }
    if (error == 0 && output != -1) {
        error = posix_spawn_file_actions_adddup2(&actions.list, output, STDOUT_FILENO);
    }
    if (error == 0) {
        error = posix_spawn_file_actions_addclosefrom_np(&actions.list, STDERR_FILENO + 1);
    }
    Attributes attributes;
    sigset_t usual;
    sigemptyset(&usual);
    sigaddset(&usual, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes.list, &usual);
    posix_spawnattr_setflags(&attributes.list, POSIX_SPAWN_SETSIGDEF);

    const char* const words[] = {"sh", "-c", commandLine, nullptr};
    pid_t child = -1;
    if (error == 0) {
        error = posix_spawn(&child, "/bin/sh", &actions.list, &attributes.list,
                            const_cast<char* const*>(words), environ);
    }
    if (error != 0) {
        errno = error;
        return -1;
    }
    return child;
}

int WaitForChild(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) == -1) {
        if (errno != EINTR) {
            return -1;
        }
    }
    return status;
}

}  // namespace frameworks
