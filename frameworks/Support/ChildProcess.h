// Children: a program or a shell that runs a command line, and waiting for it.
//
// A child is started with posix_spawn, which does not copy the process's memory. It has the
// standard descriptors and no other, whatever the process has open and whether or not it is
// close-on-exec, and it has the usual answer to SIGPIPE even where the process ignores that signal,
// so that pipelines end as they do in a terminal.
//
// Owner: the caller, who has to wait for the child. Threads: any. Failure: -1 with errno.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace frameworks {

// INPUT and OUTPUT become the shell's; -1 leaves it the process's own. Both stay open here.
pid_t StartShell(const char* commandLine, int input, int output);

// The first of the WORDS is the program's path, and all of them are its arguments. ENVIRONMENT is
// made of "NAME=value".
pid_t StartProgram(const std::vector<std::string>& words,
                   const std::vector<std::string>& environment, int input, int output);

// The status as waitpid gives it.
int WaitForChild(pid_t child);

// WORDS as the system's calls want them; they point into WORDS.
std::vector<char*> PointersTo(const std::vector<std::string>& words);

}  // namespace frameworks
