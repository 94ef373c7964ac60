// Makes a fatal or terminating signal leave its number in the log, and a write to a closed socket
// harmless.
//
// A caught signal ends the process with status 1. A signal that the parent process told the service
// to ignore stays ignored. Requests to end (SIGINT, SIGTERM) are taken by a thread that does
// nothing else: it holds no lock and is in the middle of nothing, so logging there is safe whatever
// the others are at. A fault is handled where it happens; should that thread hold what the log
// needs, the process ends a few seconds later without the lines.
#pragma once

class CrashHandler {
  public:
    CrashHandler() = delete;

    // Called once, when the process has its final identity.
    static void Init();
    static void SetFunction(int signal);
    static void HandleSignal(int signal);
};
