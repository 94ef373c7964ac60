// Running another program in a test, and what it says.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <string>

struct CommandResult {
    // The exit status, or -1 when there is none.
    int status = -1;
    // Standard output, and standard error where the command joins it.
    std::string output;
};

// COMMAND is the shell's.
inline CommandResult RunCommand(const std::string& command) {
    CommandResult result;
    std::FILE* const pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return result;
    char piece[4096];
    std::size_t length = 0;
    while ((length = std::fread(piece, 1, sizeof piece, pipe)) > 0) {
        result.output.append(piece, length);
    }
    const int ended = pclose(pipe);
    result.status = WIFEXITED(ended) ? WEXITSTATUS(ended) : -1;
    return result;
}

// As one word for the shell.
inline std::string Quoted(const std::string& text) {
    std::string quoted = "'";
    for (const char byte : text) {
        quoted += byte == '\'' ? std::string("'\\''") : std::string(1, byte);
    }
    return quoted + "'";
}
