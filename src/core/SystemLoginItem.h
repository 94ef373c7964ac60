// The way from a service that the system started as root to one that works for the user at the
// console.
//
// All members are static and belong to the main thread, before any other one exists.
#pragma once

#include <Carbon/Carbon.h>

class SystemLoginItem {
  public:
    SystemLoginItem() = delete;

    // Returns at once for an ordinary user; for root only when somebody has logged in and the
    // process has become theirs.
    static void WaitForAndTransformToLoginUser();

    // There is no test for it: a service started as root always waits for the launch.
    static bool IsUIServerRunning();
    static void InstallWindowServerEventListener();
    static OSStatus AppLaunchedEventHandler(EventHandlerCallRef callRef, EventRef event,
                                            void* userData);
    // Takes over the identity of the user at the console, for good.
    static void OnUserLoggedIn();

  private:
    // Whether the application event loop runs for the sake of the wait, and is to be ended by it.
    static bool runningEventLoop;
};
