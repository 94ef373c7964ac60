// What the desktop shows of the user's preferences.
//
// Two property lists of the Mac have a counterpart on the desktop: the login items are entries in
// the folder of what is started at login, and the Launch Services preferences are default
// applications. The lists are the truth; their counterparts are made anew from them each time they
// are written. Nothing that is not from here is changed or removed.
//
// Threads: one at a time. Failure: none; a desktop that cannot be told is told the next time.
#pragma once

#include <string>

#include "CoreFoundation/Object.h"

namespace frameworks {

// LIST has been written to the file PATH, whichever that is.
void MirrorPropertyList(const std::string& path, const Object& list) noexcept;

}  // namespace frameworks
