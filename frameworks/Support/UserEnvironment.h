// The environment of the programs that are started for the user whom the process acts for.
//
// While that is the user who started the process it is the process's own, without what a service
// manager tells a service of itself; after an identity switch it is made anew, and only the search
// path, the language, the time zone and sudo's dialog are kept. What is missing of the way to the
// user's desktop (display, message bus, runtime folder) is taken from a program that runs on it,
// because a service is often started before there is one.
//
// Threads: any that does not run beside a change of the environment. Failure: what cannot be found
// out is not in it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace frameworks {

// "NAME=value"
using Environment = std::vector<std::string>;

Environment EnvironmentOfUser();

// Empty when there is none of that name.
std::string_view ValueIn(const Environment& environment, std::string_view name);

// The program called NAME in the folders that PATH names in the environment; empty when there is
// none that can be run.
std::string FindProgram(const Environment& environment, std::string_view name);

}  // namespace frameworks
