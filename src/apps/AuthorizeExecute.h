// Runs a tool with administrator rights, which the user grants in the system's dialog.
//
// All members are static, for the thread that handles commands; they block it until the user has
// answered and the tool has closed its output. Failure: the status of Authorization Services,
// unchanged; otherwise the tool's own code, which is the first character of the last piece of its
// output less "0", and 0 for a tool that prints nothing.
#pragma once

#include <Carbon/Carbon.h>

#include <string>
#include <vector>

class AuthorizeExecute {
  public:
    AuthorizeExecute() = delete;

    static OSStatus StartElevatedTool(const std::string& tool, std::vector<const char*> arguments);
    // Runs /bin/sh with the script; an empty path is refused.
    static OSStatus StartElevatedScript(const std::string& scriptPath);
};
