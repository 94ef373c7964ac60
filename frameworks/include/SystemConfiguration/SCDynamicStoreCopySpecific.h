// Who is logged in at the machine's own screen.
//
// Backed by frameworks/SystemConfiguration/ConsoleUser: the active session of seat0, as logind
// tells; without logind, the owner of /dev/console, where root stands for nobody.
// Different from the Mac: at the login screen there is nobody, and not a user called "loginwindow".
// Ownership: Copy hands over one reference. Threads: any. Failure: null for nobody, and for a user
// whom the password database does not know.
#pragma once

#include <SystemConfiguration/SCDynamicStore.h>
#include <sys/types.h>

extern "C" {

// The store may be null. So may the out parameters, which are left as they were when there is
// nobody.
CFStringRef SCDynamicStoreCopyConsoleUser(SCDynamicStoreRef store, uid_t* uid, gid_t* gid);

}  // extern "C"
