#include "apps/ProcessOpenManager.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "core/Helpers.h"
#include "core/StandardOutput.h"

ProcessOpenManager* ProcessOpenManager::instance = nullptr;
FILE* ProcessOpenManager::lastStream = nullptr;

namespace {

// Appends all that STREAM still gives to OUTPUT, in the chunks that the log tells of.
void Collect(FILE* stream, const std::string& commandLine, std::string* output) {
    char chunk[128];
    while (std::feof(stream) == 0 && std::ferror(stream) == 0) {
        const std::size_t length = std::fread(chunk, 1, sizeof chunk - 1, stream);
        if (std::ferror(stream) != 0 && errno == EINTR) {
            // A signal, and not the end: the command goes on, and so do we.
            std::clearerr(stream);
            if (length == 0) {
                continue;
            }
        }
        if (length == 0) {
            Helpers::logprintf("Error : zero bytes read from command '%s'", commandLine);
            continue;
        }
        chunk[length] = '\0';
        Helpers::logprint("received: ");
        if (output != nullptr) {
            output->append(chunk);
        }
    }
}

}  // namespace

ProcessOpenManager* ProcessOpenManager::getInstance() {
    if (instance == nullptr) {
        instance = new ProcessOpenManager();
    }
    return instance;
}

bool ProcessOpenManager::open(const char* command, const char* mode, std::string* output,
                              bool redirectErrorStream) {
    if (lastStream != nullptr) {
        pclose(lastStream);
        lastStream = nullptr;
    }
    Helpers::logprintf("ProcessOpenManager::open : '%s'", std::string(command));
    // What has been logged is to be seen while the command runs, which may take minutes.
    FlushStandardOutput();
    const std::string commandLine = std::string(command) + (redirectErrorStream ? " 2>&1" : "");
    // NOLINTNEXTLINE(cert-env33-c): a command line for the shell is what callers hand over
    lastStream = popen(commandLine.c_str(), mode);
    if (lastStream == nullptr) {
        Helpers::logprintf("Error : can not open stream from command '%s'", commandLine);
        return false;
    }
    if (std::strcmp(mode, "r+") == 0) {
        // A program that reads its standard input finds its end there instead of waiting for us for
        // ever.
        shutdown(fileno(lastStream), SHUT_WR);
    }
    if (std::strcmp(mode, "w") != 0) {
        Collect(lastStream, commandLine, output);
    }
    return true;
}
