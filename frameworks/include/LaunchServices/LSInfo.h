// Launch Services: which applications there are.
//
// Backed by the bundles' Info.plist files (frameworks/LaunchServices/ApplicationCatalog).
// What is here: finding an application by its bundle identifier, and making one known.
//
// An application is a folder whose name ends in ".app", with an identifier in its Info.plist. Those
// in /Applications and in the user's Applications folder, and in plain folders up to two levels
// deep there, are known by themselves; folders are looked at again when they have changed. Any
// other is known once it has been registered, until this process ends. Of several with one
// identifier the one with the highest CFBundleVersion counts, and among equals the one in
// /Applications, then the user's, then the registered ones, each by name. Letter case does not
// matter in identifiers. Where one is known by an identifier, others are not looked at again for
// having taken the same one in place since; where none is, all are.
//
// Different from the Mac: links in those folders are not followed, so that an application is only
// ever found, and deleted, where it is (LaunchServices_test: Find_OfALinkToABundle_FindsNothing);
// registrations do not outlive the process, and registering a plain folder registers the bundles
// that lie directly in it (Register_OfAFolder_RegistersWhatLiesInIt).
//
// Ownership: nothing is handed over. Threads: any. Failure: as said per call. A reference that was
// never filled in is what is left where a path leads nowhere: fnfErr.
#pragma once

#include <CarbonCore/Files.h>
#include <CarbonCore/MacTypes.h>
#include <CoreFoundation/CFString.h>
#include <CoreFoundation/CFURL.h>

extern "C" {

enum : OSStatus {
    kLSAppInTrashErr = -10660,
    kLSExecutableIncorrectFormat = -10661,
    kLSUnknownErr = -10810,
    kLSNotAnApplicationErr = -10811,
    kLSApplicationNotFoundErr = -10814,
    kLSDataErr = -10817,
    kLSServerCommunicationErr = -10822,
    kLSNoRegistrationInfoErr = -10824,
    kLSNoLaunchPermissionErr = -10826,
    kLSNoExecutableErr = -10827
};

enum : OSType { kLSUnknownCreator = 0 };

// The application with that bundle identifier. kLSApplicationNotFoundErr when there is none,
// kLSAppInTrashErr when the only one is in the trash. paramErr without an identifier or a place for
// the reference, and for what is not offered here: a creator, a name, an address.
OSStatus LSFindApplicationForInfo(OSType inCreator, CFStringRef inBundleID, CFStringRef inName,
                                  FSRef* outAppRef, CFURLRef* outAppURL);

// Makes a bundle known, or the bundles in a folder. One that is not there any more is forgotten:
// fnfErr. kLSDataErr for a bundle whose Info.plist is broken, kLSNoRegistrationInfoErr for what has
// no identifier: a bundle without one, a file, a folder without bundles. What has changed is read
// again whether or not inUpdate says so.
OSStatus LSRegisterFSRef(const FSRef* inRef, Boolean inUpdate);

}  // extern "C"
