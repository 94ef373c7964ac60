#include "net/ConnectionAuthorization.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "core/Helpers.h"
#include "core/WholeFile.h"

namespace {

constexpr char kFileName[] = "tesselAuth.key";
constexpr char kTemplate[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?> \n"
    "<root> \n"
    "\t<commandPort>%d</commandPort> \n"
    "\t<pressurePort>%d</pressurePort> \n"
    "\t<airAppsPort>%d</airAppsPort> \n"
    "\t<authKey>%s</authKey> \n"
    "</root> \n";

std::string& PassKey() {
    static std::string& key = *new std::string();
    return key;
}

std::string Text(int commandPort, int pressurePort, int airAppsPort) {
    constexpr std::size_t kEnough = 512;
    char text[kEnough];
    std::snprintf(text, sizeof text, kTemplate, commandPort, pressurePort, airAppsPort,
                  ConnectionAuthorization::GetPassKey().c_str());
    return text;
}

bool LetsOthersIn(const std::string& folder) {
    struct stat status;
    return stat(folder.c_str(), &status) != 0 || (status.st_mode & (S_IRWXG | S_IRWXO)) != 0;
}

// An error's number, or 0.
int Publish(const std::string& folder, const std::string& text) {
    WholeFile file;
    // The folder is nobody else's when the service has made it, but it may have been there before.
    if (const int error =
            file.Open(folder + kFileName, LetsOthersIn(folder) ? WholeFile::Readers::kOwnerAlone
                                                               : WholeFile::Readers::kAsBefore)) {
        return error;
    }
    return file.Commit(text);
}

}  // namespace

void ConnectionAuthorization::GeneratePassKey() {
    PassKey() = Helpers::generateUUID();
}

std::string ConnectionAuthorization::GetPassKey() {
    if (PassKey().empty()) {
        GeneratePassKey();
    }
    return PassKey();
}

int ConnectionAuthorization::CreateDirIfNeeded(const std::string& path) {
    return mkdir(path.c_str(), 0700);
}

void ConnectionAuthorization::WritePassKeyAndPortsFile(int commandPort, int pressurePort,
                                                       int airAppsPort) {
    const std::string support = Helpers::getSupportPath();
    CreateDirIfNeeded(support);
    const std::string old = support + "Tessel Dock/";
    CreateDirIfNeeded(old);
    const int error = Publish(support, Text(commandPort, pressurePort, airAppsPort));
    if (error != 0) {
        Helpers::reportError(error, "Unable to open key authorization file to write: ");
        // What is not published is nobody's.
        PassKey().clear();
        return;
    }
    // Earlier versions kept the file there; a dock that found it would use a key of the past.
    unlink((old + kFileName).c_str());
}

bool ConnectionAuthorization::IsAuthorizationOk(const std::wstring& message) {
    const std::vector<std::wstring> words = Helpers::splitCommand(message);
    if (words.size() != 2) {
        return false;
    }
    if (!Helpers::str_prefix("auth", words[0])) {
        Helpers::logprint("Unexpected command, expected authorization attempt.");
        return false;
    }
    return !PassKey().empty() && Helpers::wstringToUtf8(words[1]) == PassKey();
}
