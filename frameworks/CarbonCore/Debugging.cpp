#include <CarbonCore/Debugging.h>

#include <CarbonCore/MacErrors.h>
#include <LaunchServices/LSInfo.h>
#include <Security/Authorization.h>

#include <array>
#include <cstring>
#include <memory>
#include <new>
#include <string>

namespace {

struct Name {
    OSStatus status;
    const char* name;
};

#define NAME(constant) \
    { constant, #constant }

constexpr Name kNames[] = {
    NAME(noErr),
    NAME(dskFulErr),
    NAME(nsvErr),
    NAME(ioErr),
    NAME(tmfoErr),
    NAME(fnfErr),
    NAME(wPrErr),
    NAME(fBsyErr),
    NAME(dupFNErr),
    NAME(paramErr),
    NAME(permErr),
    NAME(memFullErr),
    NAME(procNotFound),
    NAME(errFSBadInfoBitmap),
    NAME(errFSMissingCatInfo),
    NAME(errFSNotAFolder),
    NAME(errFSNameTooLong),
    NAME(errFSNoMoreItems),
    NAME(errFSBadItemCount),
    NAME(errFSBadIteratorFlags),
    NAME(errFSIteratorNotFound),
    NAME(errFSIteratorNotSupported),
    NAME(errAECoercionFail),
    NAME(errAENotAEDesc),
    NAME(errAENotAppleEvent),
    NAME(errAEEventNotHandled),
    NAME(errAEUnknownSendMode),
    NAME(errAEUnknownAddressType),
    NAME(pathTooLongErr),
    NAME(noIconDataAvailableErr),
    NAME(invalidFolderTypeErr),
    NAME(afpAccessDenied),
    NAME(kLSAppInTrashErr),
    NAME(kLSExecutableIncorrectFormat),
    NAME(kLSUnknownErr),
    NAME(kLSNotAnApplicationErr),
    NAME(kLSApplicationNotFoundErr),
    NAME(kLSDataErr),
    NAME(kLSServerCommunicationErr),
    NAME(kLSNoRegistrationInfoErr),
    NAME(kLSNoLaunchPermissionErr),
    NAME(kLSNoExecutableErr),
    NAME(errAuthorizationInvalidSet),
    NAME(errAuthorizationInvalidRef),
    NAME(errAuthorizationInvalidPointer),
    NAME(errAuthorizationDenied),
    NAME(errAuthorizationCanceled),
    NAME(errAuthorizationInteractionNotAllowed),
    NAME(errAuthorizationInternal),
    NAME(errAuthorizationInvalidFlags),
    NAME(errAuthorizationToolExecuteFailure),
};

#undef NAME

constexpr int kErrorNumbers = 134;

using ErrorNames = std::array<std::string, kErrorNumbers>;

const ErrorNames& MakeErrorNames() {
    ErrorNames& names = *new ErrorNames();
    for (int error = 1; error < kErrorNumbers; ++error) {
        const char* const name = strerrorname_np(error);
        if (name != nullptr) {
            names[static_cast<std::size_t>(error)] = std::string("kPOSIXError") + name;
        }
    }
    return names;
}

const char* NameOfErrorNumber(OSStatus error) {
    static const ErrorNames& names = MakeErrorNames();
    return error > 0 && error < kErrorNumbers ? names[static_cast<std::size_t>(error)].c_str() : "";
}

}  // namespace

const char* GetMacOSStatusErrorString(OSStatus err) {
    for (const Name& known : kNames) {
        if (known.status == err) return known.name;
    }
    if (err <= kPOSIXErrorBase) return "";
    try {
        return NameOfErrorNumber(err - kPOSIXErrorBase);
    } catch (const std::bad_alloc&) {
        return "";
    }
}
