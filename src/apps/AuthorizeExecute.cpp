#include "apps/AuthorizeExecute.h"

#include <Security/Security.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "core/Helpers.h"
#include "core/StandardOutput.h"

namespace {

constexpr OSStatus kRefused = -1;
constexpr std::size_t kChunk = 128;

// A signal is not the end of what a tool prints.
ssize_t ReadChunk(int pipe, char* chunk) {
    ssize_t length = -1;
    do {
        length = read(pipe, chunk, kChunk);
    } while (length == -1 && errno == EINTR);
    return length;
}

// Reads all that the tool prints; the tool's code.
int CollectOutput(int pipe, std::string& output) {
    int code = 0;
    char chunk[kChunk + 1];
    for (ssize_t length = ReadChunk(pipe, chunk); length > 0; length = ReadChunk(pipe, chunk)) {
        chunk[length] = '\0';
        output.append(chunk);
        code = chunk[0] - '0';
    }
    return code;
}

}  // namespace

OSStatus AuthorizeExecute::StartElevatedScript(const std::string& scriptPath) {
    if (scriptPath.empty()) {
        Helpers::logprint("AuthorizeScript: Script path zero length, invalid.");
        return kRefused;
    }
    return StartElevatedTool("/bin/sh", {scriptPath.c_str()});
}

OSStatus AuthorizeExecute::StartElevatedTool(const std::string& tool,
                                             std::vector<const char*> arguments) {
    arguments.push_back(nullptr);
    AuthorizationRef authorization = nullptr;
    OSStatus status = AuthorizationCreate(nullptr, kAuthorizationEmptyEnvironment,
                                          kAuthorizationFlagDefaults, &authorization);
    if (status != errAuthorizationSuccess) {
        Helpers::logprint("AuthorizeScript: Failed to create rights!");
        Helpers::logprintf("with error: %d", static_cast<int>(status));
        return status;
    }
    AuthorizationItem administrator = {"system.privilege.admin", 0, nullptr, 0};
    const AuthorizationRights rights = {1, &administrator};
    // On this failure and the next the reference is deliberately left to the end of the process.
    status =
        AuthorizationCopyRights(authorization, &rights, kAuthorizationEmptyEnvironment,
                                kAuthorizationFlagInteractionAllowed |
                                    kAuthorizationFlagExtendRights | kAuthorizationFlagPreAuthorize,
                                nullptr);
    if (status != errAuthorizationSuccess) {
        Helpers::logprint("AuthorizeScript: Failed to copy rights.");
        return status;
    }
    // What has been logged is to be seen while the tool runs.
    FlushStandardOutput();
    FILE* pipe = nullptr;
    status =
        AuthorizationExecuteWithPrivileges(authorization, tool.c_str(), kAuthorizationFlagDefaults,
                                           const_cast<char* const*>(arguments.data()), &pipe);
    if (status != errAuthorizationSuccess) {
        Helpers::logprintf(
            "AuthorizeScript: Authorization failed, or script encountered errors: %d",
            static_cast<int>(status));
        return status;
    }
    std::string output;
    const int code = CollectOutput(fileno(pipe), output);
    Helpers::logprint(output);
    static_cast<void>(std::fclose(pipe));
    AuthorizationFree(authorization, kAuthorizationFlagDefaults);
    Helpers::logprintf("Script exit code: %d", code);
    Helpers::logprintf("Script exit result code: %s", std::string(GetMacOSStatusErrorString(code)));
    return code;
}
