// The login items as entries in the desktop's autostart folder.
//
// Each item is a file of its own, whose name begins with "login-item-" and which holds the item's
// path under "X-Login-Item". By both a file is known as one from here; every other is left alone.
// One that is there already stays as it is as long as it starts the same, so that what the user has
// switched off in the desktop's settings stays off.
//
// An application is started by its executable, a program by itself, and anything else is opened
// with xdg-open. That an item starts hidden has no counterpart.
//
// Threads: one at a time. Failure: none; what cannot be written is not there.
#pragma once

#include "CoreFoundation/Array.h"

namespace frameworks {

// Null is no items. What is no item in the list is passed over.
void MirrorLoginItems(const __CFArray* items);

}  // namespace frameworks
