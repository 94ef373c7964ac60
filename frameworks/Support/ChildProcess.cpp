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

pid_t Start(const char* program, char* const* words, char* const* environment, int input,
            int output) {
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

    pid_t child = -1;
    if (error == 0) {
        error = posix_spawn(&child, program, &actions.list, &attributes.list, words, environment);
    }
    if (error != 0) {
        errno = error;
        return -1;
    }
    return child;
}

}  // namespace

pid_t StartShell(const char* commandLine, int input, int output) {
    const char* const words[] = {"sh", "-c", commandLine, nullptr};
    return Start("/bin/sh", const_cast<char* const*>(words), environ, input, output);
}

pid_t StartProgram(const std::vector<std::string>& words,
                   const std::vector<std::string>& environment, int input, int output) {
    const std::vector<char*> arguments = PointersTo(words);
    return Start(arguments.front(), arguments.data(), PointersTo(environment).data(), input,
                 output);
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

std::vector<char*> PointersTo(const std::vector<std::string>& words) {
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (const std::string& word : words) {
        pointers.push_back(const_cast<char*>(word.c_str()));
    }
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace frameworks
