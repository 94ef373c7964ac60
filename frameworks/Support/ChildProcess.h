// Children: a shell that runs a command line, and waiting for it.
//
// The shell is started with posix_spawn, which does not copy the process's memory. It has the
// standard descriptors and no other, whatever the process has open and whether or not it is
// close-on-exec, and it has the usual answer to SIGPIPE even where the process ignores that signal,
// so that pipelines end as they do in a terminal.
//
// Owner: the caller, who has to wait for the child. Threads: any. Failure: -1 with errno.
#pragma once

#include <sys/types.h>

namespace frameworks {

// INPUT and OUTPUT become the shell's; -1 leaves it the process's own. Both stay open here.
pid_t StartShell(const char* commandLine, int input, int output);

// The status as waitpid gives it.
int WaitForChild(pid_t child);

}  // namespace frameworks
