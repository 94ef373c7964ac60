// Who is told of the application's events.
//
// Owner: the process. Threads: the main thread. Failure: none.
#pragma once

#include "HIToolbox/Event.h"

namespace frameworks {

// Calls every handler of the event's type, the one that was installed last first, whatever they
// answer. Handlers may install and remove handlers.
void SendToApplication(OpaqueEventRef& event);

// Whether a handler of that type is installed.
bool IsHandled(OSType eventClass, UInt32 eventKind);

}  // namespace frameworks
