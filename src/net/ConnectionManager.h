// Owns the three servers, ties their sockets to run loops, runs the pressure server on a thread of
// its own and the service's main loop until somebody ends it. All members are static and belong to
// the main thread, except those that say otherwise.
//
// Clients stay on the thread that accepted them. A client's output goes through Outbox; while a
// part of it waits, nothing more is read from that client, so one that sends without ever reading
// holds up nobody but itself.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <pthread.h>

#include "net/AppsCommunicationServer.h"
#include "net/PressureServer.h"
#include "net/Server.h"

class ConnectionManager {
  public:
    ConnectionManager() = delete;

    // Starts everything; 1 when all three servers listen and are served, else 0.
    static int Init();
    // Serves until the application event loop is ended, then shuts everything down.
    static void HandleRequests();

    static Server* GetCommandServer();
    static AppsCommunicationServer* GetAppsCommunicationServer();

  private:
    // The callbacks of the run loops: a server's for a new connection, a client's for bytes to read
    // or room to write.
    static void cmdServerCallBack(CFSocketRef socket, CFSocketCallBackType type, CFDataRef address,
                                  const void* data, void* info);
    static void cmdClientCallBack(CFSocketRef socket, CFSocketCallBackType type, CFDataRef address,
                                  const void* data, void* info);
    static void tblServerCallBack(CFSocketRef socket, CFSocketCallBackType type, CFDataRef address,
                                  const void* data, void* info);
    static void tblClientCallBack(CFSocketRef socket, CFSocketCallBackType type, CFDataRef address,
                                  const void* data, void* info);
    static void acServerCallBack(CFSocketRef socket, CFSocketCallBackType type, CFDataRef address,
                                 const void* data, void* info);
    static void acClientCallBack(CFSocketRef socket, CFSocketCallBackType type, CFDataRef address,
                                 const void* data, void* info);

    // The pressure thread's body.
    static void* PressureThreadFunction(void* unused);
    // False when the system has no thread for it.
    static bool startPressureThread();
    static void stopPressureThread();

    static Server* commandServer;
    static PressureServer* tabletServer;
    static AppsCommunicationServer* appsCommunicationServer;
    static pthread_t pressureThread;
    static bool pressureThreadStarted;
    // Set by the pressure thread before startPressureThread returns.
    static CFRunLoopRef pressureThreadRunLoop;
};
