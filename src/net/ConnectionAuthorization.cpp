#include "net/ConnectionAuthorization.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "core/Helpers.h"
#include "core/OpenFile.h"
#include "core/Owners.h"

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

// A file of its own, beside the one that is meant, and moved there when it is whole: whoever reads
// finds the old ports and key or the new ones, and what lies at PATH, be it a link or a file under
// another name as well, is replaced and not written to. False, with errno, and nothing of the key
// is left then.
bool Publish(const std::string& path, int commandPort, int pressurePort, int airAppsPort) {
    const std::string beside = path + ".new";
    unlink(beside.c_str());
    // Its folder may have been there before, and open to everybody.
    FileOwner file = OpenFile(beside, O_WRONLY | O_CREAT | O_EXCL, "w", S_IRUSR | S_IWUSR);
    if (!file) {
        return false;
    }
    const bool isWritten =
        std::fprintf(file.get(), kTemplate, commandPort, pressurePort, airAppsPort,
                     ConnectionAuthorization::GetPassKey().c_str()) > 0 &&
        std::fflush(file.get()) == 0;
    if (isWritten && std::rename(beside.c_str(), path.c_str()) == 0) {
        return true;
    }
    const int error = errno;
    unlink(beside.c_str());
    errno = error;
    return false;
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
    if (!Publish(support + kFileName, commandPort, pressurePort, airAppsPort)) {
        Helpers::reportError(errno, "Unable to open key authorization file to write: ");
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
