// Launch Services: launching applications and opening documents.
//
// Backed by execve for programs (frameworks/LaunchServices/Launch) and by xdg-open for documents
// (frameworks/LaunchServices/OpenDocument).
//
// An application is launched by running the executable that its Info.plist names, or the one that
// is called like the bundle, in a session of its own, in the root folder, as the user whom the
// process acts for, with that user's environment. What it prints goes to the journal under its
// name, or nowhere. It is nobody's child here, and lives on when this process ends. As on the Mac,
// an application that is running already is not started again. An executable file that is no
// bundle's is started every time.
//
// A document is opened by the application that the desktop has for it; an application that is given
// as a document is launched. xdg-open is waited for, but
// not for longer than three seconds, because on some desktops it stays for as long as the document
// is open (LaunchServicesOpen_test: OpenDocument_WhenXdgOpenStays_DoesNotWaitForIt).
//
// Ownership: nothing is handed over. Threads: any. Failure: fnfErr for a reference to nothing, be
// it gone or never filled in; kLSNotAnApplicationErr for what cannot be launched;
// kLSNoExecutableErr for a bundle without its executable; kLSNoLaunchPermissionErr,
// kLSExecutableIncorrectFormat and kLSAppInTrashErr as they say. For a document
// kLSApplicationNotFoundErr when no application opens it, and kLSServerCommunicationErr when
// xdg-open is missing. paramErr for what is not offered here, as said per call.
#pragma once

#include <AE/AEDataModel.h>
#include <CarbonCore/Files.h>
#include <CarbonCore/MacTypes.h>
#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFDictionary.h>

extern "C" {

using LSLaunchFlags = OptionBits;
// There are no recent items here to keep anything out of.
enum : LSLaunchFlags { kLSLaunchDefaults = 0x00000001, kLSLaunchDontAddToRecents = 0x00000100 };

#pragma pack(push, 2)
struct LSLaunchFSRefSpec {
    const FSRef* appRef;
    ItemCount numDocs;
    const FSRef* itemRefs;
    const AEDesc* passThruParams;
    LSLaunchFlags launchFlags;
    void* asyncRefCon;
};
#pragma pack(pop)

// Launches an application, or opens documents. Not both at once, and no parameters to pass on; of
// flags only those above. The place for the launched application must be null.
OSStatus LSOpenFromRefSpec(const LSLaunchFSRefSpec* inLaunchSpec, FSRef* outLaunchedRef);

// Launches what can be launched and opens anything else as a document. The place for the launched
// application must be null.
OSStatus LSOpenFSRef(const FSRef* inRef, FSRef* outLaunchedRef);

#pragma pack(push, 2)
struct LSApplicationParameters {
    CFIndex version;
    LSLaunchFlags flags;
    const FSRef* application;
    void* asyncLaunchRefCon;
    CFDictionaryRef environment;
    CFArrayRef argv;
    AppleEvent* initialEvent;
};
#pragma pack(pop)

// Launches an application. The version must be 0; environment, arguments, event and the place for
// the serial number must be null.
OSStatus LSOpenApplication(const LSApplicationParameters* appParams, ProcessSerialNumber* outPSN);

}  // extern "C"
