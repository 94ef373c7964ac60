// Authorization Services: running one tool with an administrator's rights.
//
// Backed by pkexec, or by sudo where there is no pkexec (frameworks/Security/Elevation). As root
// there is nothing to ask, and the tool is simply run.
// What is here: the right "system.privilege.admin", and running a tool with it.
//
// Who is asked when: on the Mac the password dialog belongs to AuthorizationCopyRights. Here pkexec
// and sudo ask when they are given the tool to run, and remember no answer that could be used
// later. So AuthorizationCopyRights says whether there is anybody to ask, and
// AuthorizationExecuteWithPrivileges asks, waits for the answer, and has the tool run once or not
// at all:
//
//   neither pkexec nor sudo       errAuthorizationInteractionNotAllowed, by CopyRights
//   the dialog was dismissed      errAuthorizationCanceled, by ExecuteWithPrivileges
//   the rights were refused       errAuthorizationDenied, by ExecuteWithPrivileges
//
// pkexec ends with 126 or 127 when it has been dismissed or refused and has printed nothing; a tool
// that ends so itself, and prints nothing either, is taken for that
// (Authorization_test: Execute_OfASilentToolThatEndsLikeARefusal_IsTakenForOne). sudo says only
// that it failed, which counts as refused.
//
// Different from the Mac, further: ExecuteWithPrivileges returns when the tool has printed
// something or has ended, not when it has started (Execute_ReturnsWhenTheToolHasPrinted). The pipe
// is for reading only, and what the tool reads is empty, so that none waits for ever
// (Execute_OfAToolThatReads_GivesItNothing). The tool's error output goes where this process's own
// goes. Right names other than that one are denied.
//
// Ownership: a reference is given back with AuthorizationFree, and the pipe with fclose. Threads:
// any; a reference is for one thread at a time. Failure: as said below.
#pragma once

#include <CarbonCore/MacTypes.h>
#include <stdio.h>

#include <cstddef>

extern "C" {

enum : OSStatus {
    errAuthorizationSuccess = 0,
    errAuthorizationInvalidSet = -60001,
    errAuthorizationInvalidRef = -60002,
    errAuthorizationInvalidPointer = -60004,
    errAuthorizationDenied = -60005,
    errAuthorizationCanceled = -60006,
    errAuthorizationInteractionNotAllowed = -60007,
    errAuthorizationInternal = -60008,
    errAuthorizationInvalidFlags = -60011,
    errAuthorizationToolExecuteFailure = -60031
};

using AuthorizationFlags = UInt32;
enum : AuthorizationFlags {
    kAuthorizationFlagDefaults = 0,
    kAuthorizationFlagInteractionAllowed = 1 << 0,
    kAuthorizationFlagExtendRights = 1 << 1,
    // Rights cannot be had in advance here, which the Mac allows for.
    kAuthorizationFlagPreAuthorize = 1 << 4
};

using AuthorizationRef = const struct AuthorizationOpaqueRef*;
using AuthorizationString = const char*;

struct AuthorizationItem {
    AuthorizationString name;
    size_t valueLength;
    void* value;
    UInt32 flags;
};

struct AuthorizationItemSet {
    UInt32 count;
    AuthorizationItem* items;
};
using AuthorizationRights = AuthorizationItemSet;
using AuthorizationEnvironment = AuthorizationItemSet;

#define kAuthorizationEmptyEnvironment NULL

// A reference without rights: errAuthorizationInvalidSet when some are asked for here,
// errAuthorizationInvalidFlags for any flag, errAuthorizationInvalidPointer for a null reference.
// The environment is not looked at.
OSStatus AuthorizationCreate(const AuthorizationRights* rights,
                             const AuthorizationEnvironment* environment, AuthorizationFlags flags,
                             AuthorizationRef* authorization);

// Null and what was given back already are errAuthorizationInvalidRef; any flag is
// errAuthorizationInvalidFlags.
OSStatus AuthorizationFree(AuthorizationRef authorization, AuthorizationFlags flags);

// Whether the rights can be had; asks nobody. Without kAuthorizationFlagInteractionAllowed and
// kAuthorizationFlagExtendRights nobody may be asked, which is the same as if nobody could be.
// authorizedRights must be null (errAuthorizationInvalidPointer). errAuthorizationInvalidSet for a
// null set and for one without items.
OSStatus AuthorizationCopyRights(AuthorizationRef authorization, const AuthorizationRights* rights,
                                 const AuthorizationEnvironment* environment,
                                 AuthorizationFlags flags, AuthorizationRights** authorizedRights);

// Runs the tool, an absolute path, after the dialog has been answered. ARGUMENTS end with a null
// pointer and do not begin with the tool. errAuthorizationDenied when AuthorizationCopyRights has
// not said before that the right can be had; errAuthorizationToolExecuteFailure when the tool
// cannot be run; errAuthorizationInvalidFlags for any option; errAuthorizationInvalidPointer for a
// null pointer.
OSStatus AuthorizationExecuteWithPrivileges(AuthorizationRef authorization, const char* pathToTool,
                                            AuthorizationFlags options, char* const* arguments,
                                            FILE** communicationsPipe);

}  // extern "C"
