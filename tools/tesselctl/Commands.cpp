#include "tesselctl/Commands.h"

namespace tesselctl {

const std::vector<Command>& AllCommands() {
    constexpr Server kC = Server::kCommand;
    constexpr Server kP = Server::kPressure;
    constexpr Server kA = Server::kApps;
    constexpr ReplyKind kAnswer = ReplyKind::kAnswer;
    // clang-format off
    static const auto& commands = *new std::vector<Command>{
        {"exit", kC, "", kAnswer, "Asks the service to quit; it acknowledges and goes on."},
        {"update", kC, "FOLDER", ReplyKind::kCloses, "Ends the service, which installs the update in FOLDER on its way out."},
        {"dockUpdateFinished", kC, "", kAnswer, "Tells the service that the dock has updated itself."},
        {"setAsStartup", kC, "", kAnswer, "Makes the dock start at login."},
        {"removeAsStartup", kC, "", kAnswer, "Keeps the dock from starting at login."},
        {"getIcon", kC, "BUNDLE", kAnswer, "Saves the icon of the application BUNDLE as a PNG file in the shared folder."},
        {"userCanPerformDockUpdate", kC, "", kAnswer, "Tells whether the user may update the dock."},
        {"userCanAdministerAirApps", kC, "", kAnswer, "Tells whether the user may install and remove AIR applications."},
        {"userCanAdministerNativeApps", kC, "", kAnswer, "Tells whether the user may install and remove native applications."},
        {"getCommonUserDir", kC, "", kAnswer, "Tells the folder that all users share."},
        {"getCoreVersion", kC, "", kAnswer, "Tells the version of the service."},
        {"fixDirectoryPermissions", kC, "FOLDER", kAnswer, "Opens FOLDER, inside the shared folder, to every user."},
        {"fixFilePermissions", kC, "FILE", kAnswer, "Opens FILE, inside the shared folder, to every user."},
        {"createUUID", kC, "", kAnswer, "Makes a new UUID."},
        {"startProcess", kC, "PATH", kAnswer, "Starts the program PATH, or opens the document PATH."},
        {"checkExists", kC, "PATH", kAnswer, "Tells whether PATH exists."},
        {"platform", kC, "", kAnswer, "Tells the platform of the service."},
        {"getLocalCountryCode", kC, "", kAnswer, "Tells the country that belongs to the time zone."},
        {"associateFileTypes", kC, "EXTENSION...", kAnswer, "Makes the dock open files with these extensions."},
        {"unassociateFileTypes", kC, "EXTENSION...", kAnswer, "Removes the first handler of each of these extensions, whosever it is."},
        {"uninstallAirApp", kC, "NAME APP-ID", kAnswer, "Removes an AIR application."},
        {"installAirApp", kC, "NAME APP-ID PACKAGE", kAnswer, "Installs an AIR application from PACKAGE."},
        {"upgradeAirApp", kC, "NAME APP-ID PACKAGE", kAnswer, "Replaces an AIR application by the one in PACKAGE."},
        {"isAirAppInstalled", kC, "NAME APP-ID", kAnswer, "Tells whether an AIR application is installed."},
        {"startAirApplication", kC, "NAME APP-ID", kAnswer, "Starts an AIR application."},
        {"installNativeApp", kC, "NAME APP-ID PACKAGE", kAnswer, "Installs a native application from PACKAGE (.pkg or .zip)."},
        {"uninstallNativeApp", kC, "NAME APP-ID", kAnswer, "Removes a native application."},
        {"upgradeNativeApp", kC, "NAME APP-ID PACKAGE", kAnswer, "Replaces a native application by the one in PACKAGE (.pkg or .zip)."},
        {"isNativeAppInstalled", kC, "NAME APP-ID", kAnswer, "Tells whether a native application is installed."},
        {"startNativeApplication", kC, "NAME APP-ID", kAnswer, "Starts a native application."},
        {"stopNativeApplication", kC, "NAME APP-ID", kAnswer, "Quits a native application, by force when it does not go."},
        {"isNativeAppRunning", kC, "NAME APP-ID", kAnswer, "Tells whether a native application runs."},
        {"startTablet", kP, "", ReplyKind::kNone, "Starts pen data on this connection (shown by the shell)."},
        {"stopTablet", kP, "", ReplyKind::kNone, "Stops pen data on this connection."},
        {"listenTablet", kP, "NAME PROCESS", kAnswer, "Starts to watch the tablet driver PROCESS."},
        {"stopListenTablet", kP, "NAME PROCESS", kAnswer, "Stops watching the tablet driver PROCESS."},
        {"getDriverVersion", kP, "", kAnswer, "Tells the version of the tablet driver."},
        {"registerChannel", kA, "CHANNEL", kAnswer, "Gives this connection the name CHANNEL for as long as it lasts."},
        {"sendDataToChannel", kA, "CHANNEL DATA TAG", kAnswer, "Sends DATA to CHANNEL; needs a channel of one's own."},
    };
    // clang-format on
    return commands;
}

const Command* FindCommand(std::string_view word) {
    for (const Command& command : AllCommands())
        if (word.substr(0, command.name.size()) == command.name) return &command;
    return nullptr;
}

std::string_view NameOf(Server server) {
    switch (server) {
        case Server::kCommand:
            return "command server";
        case Server::kPressure:
            return "pressure server";
        case Server::kApps:
            return "apps-communication server";
    }
    return "";
}

}  // namespace tesselctl
