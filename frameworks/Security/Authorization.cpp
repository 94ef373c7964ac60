#include <Security/Authorization.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <mutex>
#include <new>
#include <set>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "Security/Elevation.h"
#include "Support/ChildProcess.h"

using frameworks::ElevatedTool;

struct AuthorizationOpaqueRef {
    bool mayExecute = false;
    // The tools that have been run and not been waited for.
    std::vector<pid_t> children;
};

namespace {

constexpr char kAdministratorsRight[] = "system.privilege.admin";
constexpr AuthorizationFlags kToAsk =
    kAuthorizationFlagInteractionAllowed | kAuthorizationFlagExtendRights;

// The references that are in use, so that any other is told from them without being looked at.
struct References {
    std::mutex mutex;
    std::set<AuthorizationRef> used;

    static References& Get() {
        static References& references = *new References();
        return references;
    }
};

// Null for what is no reference.
AuthorizationOpaqueRef* Find(AuthorizationRef authorization) {
    References& references = References::Get();
    const std::lock_guard<std::mutex> lock(references.mutex);
    const bool isUsed = references.used.count(authorization) != 0;
    return isUsed ? const_cast<AuthorizationOpaqueRef*>(authorization) : nullptr;
}

void Collect(pid_t child) {
    if (waitpid(child, nullptr, WNOHANG) != 0) return;
    // One that has closed its output and goes on is left to a thread that waits for as long as that
    // takes; should there be none to be had, for the end of this process.
    try {
        std::thread([child] { frameworks::WaitForChild(child); }).detach();
    } catch (const std::system_error&) {
    }
}

OSStatus CanHave(const AuthorizationRights& rights, AuthorizationFlags flags) {
    for (UInt32 index = 0; index < rights.count; ++index) {
        const AuthorizationString name = rights.items[index].name;
        if (name == nullptr) return errAuthorizationInvalidSet;
        if (std::strcmp(name, kAdministratorsRight) != 0) return errAuthorizationDenied;
    }
    const bool mayAsk = geteuid() == 0 || (flags & kToAsk) == kToAsk;
    return mayAsk && frameworks::CanElevate() ? errAuthorizationSuccess
                                              : errAuthorizationInteractionNotAllowed;
}

OSStatus Execute(AuthorizationOpaqueRef& authorization, const std::vector<std::string>& words,
                 FILE*& pipe) {
    // Room for the child before there is one.
    authorization.children.reserve(authorization.children.size() + 1);
    ElevatedTool tool;
    const OSStatus status = frameworks::RunElevated(words, tool);
    if (tool.child != -1) {
        authorization.children.push_back(tool.child);
    }
    if (status != errAuthorizationSuccess) return status;
    FILE* const stream = fdopen(tool.output.Get(), "r");
    if (stream == nullptr) return errAuthorizationInternal;
    tool.output.Leak();
    pipe = stream;
    return errAuthorizationSuccess;
}

}  // namespace

OSStatus AuthorizationCreate(const AuthorizationRights* rights, const AuthorizationEnvironment*,
                             AuthorizationFlags flags, AuthorizationRef* authorization) {
    if (authorization == nullptr) return errAuthorizationInvalidPointer;
    if (rights != nullptr && rights->count != 0) return errAuthorizationInvalidSet;
    if (flags != kAuthorizationFlagDefaults) return errAuthorizationInvalidFlags;
    try {
        auto made = std::make_unique<AuthorizationOpaqueRef>();
        References& references = References::Get();
        const std::lock_guard<std::mutex> lock(references.mutex);
        references.used.insert(made.get());
        *authorization = made.release();
        return errAuthorizationSuccess;
    } catch (const std::bad_alloc&) {
        return errAuthorizationInternal;
    }
}

OSStatus AuthorizationFree(AuthorizationRef authorization, AuthorizationFlags flags) {
    if (flags != kAuthorizationFlagDefaults) return errAuthorizationInvalidFlags;
    {
        References& references = References::Get();
        const std::lock_guard<std::mutex> lock(references.mutex);
        if (references.used.erase(authorization) == 0) return errAuthorizationInvalidRef;
    }
    for (const pid_t child : authorization->children) {
        Collect(child);
    }
    delete authorization;
    return errAuthorizationSuccess;
}

OSStatus AuthorizationCopyRights(AuthorizationRef authorization, const AuthorizationRights* rights,
                                 const AuthorizationEnvironment*, AuthorizationFlags flags,
                                 AuthorizationRights** authorizedRights) {
    AuthorizationOpaqueRef* const known = Find(authorization);
    if (known == nullptr) return errAuthorizationInvalidRef;
    if (authorizedRights != nullptr) return errAuthorizationInvalidPointer;
    if (rights == nullptr || rights->count == 0 || rights->items == nullptr) {
        return errAuthorizationInvalidSet;
    }
    if ((flags & ~(kToAsk | kAuthorizationFlagPreAuthorize)) != 0) {
        return errAuthorizationInvalidFlags;
    }
    try {
        const OSStatus status = CanHave(*rights, flags);
        known->mayExecute = known->mayExecute || status == errAuthorizationSuccess;
        return status;
    } catch (const std::bad_alloc&) {
        return errAuthorizationInternal;
    }
}

OSStatus AuthorizationExecuteWithPrivileges(AuthorizationRef authorization, const char* pathToTool,
                                            AuthorizationFlags options, char* const* arguments,
                                            FILE** communicationsPipe) {
    AuthorizationOpaqueRef* const known = Find(authorization);
    if (known == nullptr) return errAuthorizationInvalidRef;
    if (pathToTool == nullptr || arguments == nullptr || communicationsPipe == nullptr) {
        return errAuthorizationInvalidPointer;
    }
    if (options != kAuthorizationFlagDefaults) return errAuthorizationInvalidFlags;
    if (!known->mayExecute) return errAuthorizationDenied;
    // Whether a tool that only root can see is there shows when root runs it.
    if (*pathToTool != '/' || (access(pathToTool, X_OK) != 0 && errno == ENOENT)) {
        return errAuthorizationToolExecuteFailure;
    }
    try {
        std::vector<std::string> words = {pathToTool};
        for (char* const* argument = arguments; *argument != nullptr; ++argument) {
            words.emplace_back(*argument);
        }
        return Execute(*known, words, *communicationsPipe);
    } catch (const std::bad_alloc&) {
        return errAuthorizationInternal;
    }
}
