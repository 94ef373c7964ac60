// Starts a program that has nothing more to do with this process.
//
// It is in a session of its own, in the root folder, with the usual answer to every signal, and is
// the child of the system's first process, which collects it when it ends: it lives on when this
// process ends, is no zombie when it ends itself, and is nothing that somebody here could wait for
// by mistake. Its standard input is empty; it has no other descriptors than the standard ones.
//
// Owner: nobody. Threads: any. Failure: the number of the error that kept the program from being
// started, that of execve included.
#pragma once

#include <string>
#include <vector>

namespace frameworks {

struct DetachedProgram {
    // The first is the program's path, and all of them are its arguments.
    std::vector<std::string> words;
    // "NAME=value"
    std::vector<std::string> environment;
    // What become its standard output and its standard error; -1 is nowhere. Both stay open here.
    int output = -1;
    int errors = -1;
};

// Returns when the program runs. 0, or an error number.
int StartDetached(const DetachedProgram& program);

}  // namespace frameworks
