// What Launch Services answers when the service launches or opens something: on a system without
// its server that no test can have.
#pragma once

#include <Carbon/Carbon.h>

// From now on nothing is launched or opened, and LSOpenFromRefSpec answers with STATUS. noErr gives
// the real one back.
void LetLaunchingAnswer(OSStatus status);
