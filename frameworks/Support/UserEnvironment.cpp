#include "Support/UserEnvironment.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <optional>

#include "Support/Proc.h"
#include "Support/ReadFile.h"
#include "Support/Users.h"

namespace frameworks {
namespace {

constexpr std::string_view kDefaultPath =
    "/usr/local/bin:/usr/bin:/bin:/usr/local/sbin:/usr/sbin:/sbin";

// What says nothing about the user, and is kept when another one's process it becomes.
constexpr std::string_view kEverybodys[] = {"PATH", "LANG", "LANGUAGE", "TZ", "SUDO_ASKPASS"};

// What a service manager tells the service alone.
constexpr std::string_view kServices[] = {
    "NOTIFY_SOCKET",  "WATCHDOG_PID", "WATCHDOG_USEC",    "LISTEN_PID",     "LISTEN_FDS",
    "LISTEN_FDNAMES", "MAINPID",      "SYSTEMD_EXEC_PID", "JOURNAL_STREAM", "INVOCATION_ID"};

// The way to the desktop.
constexpr std::string_view kDesktops[] = {
    "DISPLAY",         "WAYLAND_DISPLAY",     "XAUTHORITY",       "DBUS_SESSION_BUS_ADDRESS",
    "XDG_RUNTIME_DIR", "XDG_CURRENT_DESKTOP", "XDG_SESSION_TYPE", "XDG_SESSION_ID",
    "DESKTOP_SESSION", "XDG_DATA_DIRS",       "XDG_CONFIG_DIRS"};

std::string_view NameIn(std::string_view variable) {
    return variable.substr(0, variable.find('='));
}

template <std::size_t Count>
bool Holds(const std::string_view (&names)[Count], std::string_view name) {
    return std::find(names, names + Count, name) != names + Count;
}

void AddIfMissing(Environment& environment, std::string_view name, std::string_view value) {
    if (!value.empty() && ValueIn(environment, name).empty()) {
        environment.push_back(std::string(name).append("=").append(value));
    }
}

Environment OwnEnvironment(bool isTheUsers) {
    Environment environment;
    for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
        const std::string_view name = NameIn(*variable);
        const bool isKept = isTheUsers ? !Holds(kServices, name)
                                       : Holds(kEverybodys, name) || name.substr(0, 3) == "LC_";
        if (isKept) {
            environment.emplace_back(*variable);
        }
    }
    return environment;
}

Environment EnvironmentOf(pid_t pid) {
    Environment environment;
    const std::optional<std::string> file =
        ReadFile(("/proc/" + std::to_string(pid) + "/environ").c_str());
    for (std::string_view rest = file ? std::string_view(*file) : std::string_view();
         !rest.empty();) {
        const std::string_view variable = rest.substr(0, rest.find('\0'));
        environment.emplace_back(variable);
        rest.remove_prefix(std::min(variable.size() + 1, rest.size()));
    }
    return environment;
}

bool HasDisplay(const Environment& environment) {
    return !ValueIn(environment, "DISPLAY").empty() ||
           !ValueIn(environment, "WAYLAND_DISPLAY").empty();
}

bool IsOfUser(pid_t pid, uid_t user) {
    struct stat status;
    return stat(("/proc/" + std::to_string(pid)).c_str(), &status) == 0 && status.st_uid == user;
}

// Of the first program of USER's that has a display; not that of a display far away.
Environment EnvironmentOnDesktop(uid_t user) {
    Environment found;
    ForEachProcess([&](pid_t pid, ino_t) {
        if (!found.empty() || !IsOfUser(pid, user)) return;
        Environment environment = EnvironmentOf(pid);
        if (HasDisplay(environment) && ValueIn(environment, "SSH_CONNECTION").empty()) {
            found = std::move(environment);
        }
    });
    return found;
}

void AddDesktop(Environment& environment, uid_t user) {
    if (!HasDisplay(environment)) {
        const Environment desktop = EnvironmentOnDesktop(user);
        for (const std::string_view name : kDesktops) {
            AddIfMissing(environment, name, ValueIn(desktop, name));
        }
    }
    const std::string folder = "/run/user/" + std::to_string(user);
    struct stat status;
    if (stat(folder.c_str(), &status) == 0 && status.st_uid == user) {
        AddIfMissing(environment, "XDG_RUNTIME_DIR", folder);
    }
    const std::string bus = std::string(ValueIn(environment, "XDG_RUNTIME_DIR")) + "/bus";
    if (stat(bus.c_str(), &status) == 0 && S_ISSOCK(status.st_mode)) {
        AddIfMissing(environment, "DBUS_SESSION_BUS_ADDRESS", "unix:path=" + bus);
    }
}

}  // namespace

Environment EnvironmentOfUser() {
    Environment environment = OwnEnvironment(ActsForTheUserWhoStartedIt());
    AddIfMissing(environment, "PATH", kDefaultPath);
    if (const std::optional<User> user = UserOf(geteuid())) {
        AddIfMissing(environment, "HOME", user->home);
        AddIfMissing(environment, "USER", user->name);
        AddIfMissing(environment, "LOGNAME", user->name);
    }
    AddDesktop(environment, geteuid());
    return environment;
}

std::string_view ValueIn(const Environment& environment, std::string_view name) {
    for (const std::string_view variable : environment) {
        if (NameIn(variable) == name && variable.size() > name.size()) {
            return variable.substr(name.size() + 1);
        }
    }
    return {};
}

std::string FindProgram(const Environment& environment, std::string_view name) {
    for (std::string_view rest = ValueIn(environment, "PATH"); !rest.empty();) {
        const std::string_view folder = rest.substr(0, rest.find(':'));
        rest.remove_prefix(std::min(folder.size() + 1, rest.size()));
        std::string program = std::string(folder).append("/").append(name);
        struct stat status;
        if (!folder.empty() && stat(program.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
            access(program.c_str(), X_OK) == 0) {
            return program;
        }
    }
    return std::string();
}

}  // namespace frameworks
