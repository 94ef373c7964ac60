// Sending Apple events.
//
// Backed by signals (frameworks/AE/SendMessage).
// What is here: asking an application to quit, which is SIGTERM to every process whose program lies
// in a bundle with that identifier and that is ours to signal.
// Different from the Mac: no other event can be sent (AppleEvents_test:
// Send_OfAnotherEvent_IsRefused), and none to a target of another type than a bundle's identifier
// (Send_ToAnotherTypeOfTarget_IsRefused). An application with helper programs in its bundle has
// those asked too (Send_ToABundleWithTwoProcesses_EndsBoth).
//
// Ownership: nothing is handed over. Threads: any. Failure: as said below.
#pragma once

#include <AE/AEDataModel.h>

extern "C" {

// Returns before the application has quit, if it does. procNotFound when none is running that is
// ours to ask. The reply must be null and the mode kAENoReply (errAEUnknownSendMode); there is no
// time to run out. errAENotAppleEvent for what is no event, errAEEventNotHandled for any other
// event than 'aevt' 'quit', errAEUnknownAddressType for any other target than
// typeApplicationBundleID.
OSStatus AESendMessage(const AppleEvent* event, AppleEvent* reply, AESendMode sendMode,
                       long timeOutInTicks);

}  // extern "C"
