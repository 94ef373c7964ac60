#include "Support/Users.h"

#include <pwd.h>
#include <sys/auxv.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

namespace frameworks {

std::optional<User> UserOf(uid_t uid) {
    std::vector<char> buffer(1024);
    for (;;) {
        passwd entry;
        passwd* found = nullptr;
        const int error = getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found);
        if (error == EINTR) {
            continue;
        }
        if (error == ERANGE) {
            buffer.resize(buffer.size() * 2);
            continue;
        }
        if (error != 0 || found == nullptr) {
            return std::nullopt;
        }
        return User{entry.pw_name, entry.pw_dir, entry.pw_gid};
    }
}

bool ActsForTheUserWhoStartedIt() {
    // The kernel noted the real user id when the program started; setuid does not change the note.
    return geteuid() == static_cast<uid_t>(getauxval(AT_UID));
}

}  // namespace frameworks
