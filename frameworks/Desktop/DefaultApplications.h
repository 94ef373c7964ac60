// The handlers of filename extensions in the Launch Services preferences, as default applications
// of the desktop: lines of mimeapps.list in the user's configuration folder.
//
// A handler counts when the desktop knows the type of its extension and has an entry that is called
// like its bundle identifier, "org.example.Editor.desktop"; letter case does not matter. Of several
// handlers for one type the first one counts. The application is put in front of those that the
// type has by then, which stay behind it. What has been put there is noted in a list beside,
// launch-services-defaults.list, with the place where it was before; when no handler says it any
// more, it goes back to that place, or out when it had none. What was in front already is not noted
// and stays. All other lines stay as they are, byte for byte.
//
// Threads: one at a time. Failure: none; a list that cannot be read is not written.
#pragma once

#include "CoreFoundation/Array.h"

namespace frameworks {

// Null is no handlers. What is no handler in the list is passed over.
void MirrorHandlers(const __CFArray* handlers);

}  // namespace frameworks
