// The entries of the password database, read without the static buffer that threads would share.
//
// Threads: any. Failure: no entry.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace frameworks {

struct User {
    std::string name;
    std::string home;
    gid_t group;
};

std::optional<User> UserOf(uid_t uid);

// Whether the process still acts for the user who started it, to whom its environment belongs.
bool ActsForTheUserWhoStartedIt();

}  // namespace frameworks
