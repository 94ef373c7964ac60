#include "Support/LoginSession.h"

#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "Support/DynamicLibrary.h"
#include "Support/ReadFile.h"

namespace frameworks {
namespace {

// The functions of sd-login that are used here, with their own names.
struct SdLogin {
    DynamicLibrary library{"libsystemd.so.0"};
    int (*sd_seat_get_active)(const char* seat, char** session, uid_t* uid);
    int (*sd_session_get_class)(const char* session, char** clazz);
    int (*sd_session_get_type)(const char* session, char** type);
    // Not in every version.
    int (*sd_session_get_leader)(const char* session, pid_t* leader);
    bool isUsable;

    SdLogin() {
        isUsable = library.Find("sd_seat_get_active", sd_seat_get_active) &&
                   library.Find("sd_session_get_class", sd_session_get_class) &&
                   library.Find("sd_session_get_type", sd_session_get_type);
        library.Find("sd_session_get_leader", sd_session_get_leader);
    }
};

// Null where there is nobody to ask.
const SdLogin* TheSdLogin() {
    // The test that sd-login's manual gives for "logind is there".
    if (access("/run/systemd/seats/", F_OK) != 0) return nullptr;
    return FunctionsOf<SdLogin>([](SdLogin& login) { return login.isUsable; });
}

using Text = std::unique_ptr<char, decltype(&std::free)>;

std::string AskFor(int (*ask)(const char*, char**), const std::string& session) {
    char* answer = nullptr;
    if (ask(session.c_str(), &answer) < 0 || answer == nullptr) return std::string();
    return Text(answer, std::free).get();
}

// Libraries that have no call for it go with a logind that keeps it in this line.
pid_t LeaderInFileOf(const std::string& session) {
    const std::optional<std::string> file = ReadFile(("/run/systemd/sessions/" + session).c_str());
    if (!file) return 0;
    const std::string_view key = "\nLEADER=";
    const std::string content = "\n" + *file;
    const std::size_t found = content.find(key);
    if (found == std::string::npos) return 0;
    pid_t leader = 0;
    std::from_chars(content.data() + found + key.size(), content.data() + content.size(), leader);
    return leader;
}

}  // namespace

SeatState ActiveSessionOfTheSeat() {
    SeatState state;
    const SdLogin* const login = TheSdLogin();
    if (login == nullptr) return state;
    char* id = nullptr;
    uid_t user = 0;
    const int result = login->sd_seat_get_active("seat0", &id, &user);
    const Text owned(id, std::free);
    // The second means that nobody is on the screen.
    state.isKnown = result >= 0 || result == -ENODATA;
    if (result >= 0 && id != nullptr) {
        const std::string sessionClass = AskFor(login->sd_session_get_class, id);
        const std::string type = AskFor(login->sd_session_get_type, id);
        // "user" and its newer kinds; the others are "greeter", "lock-screen", "background", ...
        const bool isPersons = sessionClass.compare(0, 4, "user") == 0;
        const bool isGraphical = type == "x11" || type == "wayland" || type == "mir";
        state.session = LoginSession{id, user, isPersons, isGraphical};
    }
    return state;
}

std::optional<ProcessStatus> LeaderOf(const LoginSession& session) {
    const SdLogin* const login = TheSdLogin();
    if (login == nullptr) return std::nullopt;
    pid_t leader = 0;
    if (login->sd_session_get_leader == nullptr) {
        leader = LeaderInFileOf(session.id);
    } else if (login->sd_session_get_leader(session.id.c_str(), &leader) < 0) {
        return std::nullopt;
    }
    return leader > 0 ? StatusOf(leader) : std::nullopt;
}

}  // namespace frameworks
