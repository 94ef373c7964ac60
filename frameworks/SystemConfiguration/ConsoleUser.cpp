#include "SystemConfiguration/ConsoleUser.h"

#include <sys/stat.h>

#include "Support/Users.h"

namespace frameworks {
namespace {

std::optional<uid_t> OwnerOf(const char* console) {
    struct stat status;
    if (stat(console, &status) != 0 || status.st_uid == 0) return std::nullopt;
    return status.st_uid;
}

std::optional<uid_t> UserAt(const SeatState& seat) {
    // A login screen runs under a user of its own, who is no person.
    if (!seat.session || !seat.session->isPersons) return std::nullopt;
    return seat.session->user;
}

}  // namespace

std::optional<ConsoleUser> FindConsoleUser(const SeatState& seat, const char* console) {
    const std::optional<uid_t> uid = seat.isKnown ? UserAt(seat) : OwnerOf(console);
    if (!uid) return std::nullopt;
    const std::optional<User> user = UserOf(*uid);
    if (!user) return std::nullopt;
    return ConsoleUser{user->name, *uid, user->group};
}

}  // namespace frameworks
