// Runs one shell command line at a time and, in the reading modes, collects what it prints.
//
// A singleton that is never freed, for the thread that handles commands; no lock. The stream of the
// latest command is left open until the next one starts, so at most one command is outstanding and
// no exit status is ever collected. Failure: `open` is false only when the shell could not be
// started.
#pragma once

#include <cstdio>
#include <string>

class ProcessOpenManager {
  public:
    static ProcessOpenManager* getInstance();

    // Runs COMMAND through popen in MODE. Unless MODE is "w", returns only when the command has
    // closed its output, and appends that output to *OUTPUT if it is not null; with
    // REDIRECTERRORSTREAM the command's error output as well.
    bool open(const char* command, const char* mode, std::string* output, bool redirectErrorStream);

  private:
    ProcessOpenManager() = default;

    static ProcessOpenManager* instance;
    static FILE* lastStream;
};
