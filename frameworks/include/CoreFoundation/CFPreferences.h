// The user's preferences: values by key and application.
//
// Backed by one property list for each application, Library/Preferences/APPLICATION.plist in the
// home folder of the user whom the process acts for.
// What is here: asking for a value, setting or removing one, and making that last.
// Different from the Mac: only these lists are looked at, no others for all users, all applications
// or this machine. What is in the file counts, whenever it was written, not what was read some time
// before (CFPreferences_test: CopyAppValue_AfterAnotherProgramWroteTheFile_IsWhatItWrote). A list
// that cannot be read is left alone, and setting a value fails
// (CFPreferences_test: Synchronize_WithAFileThatIsNoPropertyList_LeavesItAndFails).
//
// Ownership: Copy hands over one reference; a value that is set is copied, all of it. Threads: any.
// Failure: as said per call.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFString.h>

extern "C" {

// The value that was set last, be it written already or not. It cannot be changed. Null when there
// is none.
CFPropertyListRef CFPreferencesCopyAppValue(CFStringRef key, CFStringRef applicationID);

// Null removes the key. Nothing is written before the preferences are synchronized. A value that is
// no property list stops the program.
void CFPreferencesSetAppValue(CFStringRef key, CFPropertyListRef value, CFStringRef applicationID);

// Writes what has been set into the list as it is in the file by now; its other keys and its format
// stay, and a new one is binary and for its owner alone. True when there was nothing to write.
// False when it cannot be written: the file is then as it was, and what has been set is kept for
// the next time. The login items of the user show in the desktop's autostart folder afterwards
// (frameworks/Desktop/Mirror.h).
Boolean CFPreferencesAppSynchronize(CFStringRef applicationID);

}  // extern "C"
