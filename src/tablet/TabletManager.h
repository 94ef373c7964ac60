// Watches the events that the tablet driver's process posts, through a tap that only listens, and
// turns them into pen data for whoever listens at the pressure server.
//
// All members are static. Init runs before the pressure thread starts, Unload after it has ended;
// everything else belongs to that thread, whose run loop carries the taps. Positions are in pixels
// of the screen, from the top left; pressure is 0 to 511.
#pragma once

#include <ApplicationServices/ApplicationServices.h>

#include <cstdint>
#include <string>
#include <vector>

#include "core/Owners.h"
#include "net/PressureReplier.h"

class TabletManager {
  public:
    TabletManager() = delete;

    static void Init(PressureReplier* commandServer, PressureReplier* tabletServer);
    // Taps the process of this name. False when there is none, or it cannot be tapped.
    static bool InstallTap(CFStringRef processName);
    // Ends the first tap on that name, and forgets it with ERASE. Always true.
    static bool UninstallTap(CFStringRef processName, bool erase);
    // Ends all taps.
    static void Unload();
    // The version of the installed driver, or "none".
    static std::wstring GetDriverVersion();
    static CGEventRef TabletTapCallBack(CGEventTapProxy proxy, CGEventType type, CGEventRef event,
                                        void* unused);

    // Whether a client has asked for pressure values and for drag and pen-up events.
    static bool listening;
    // The proximity value of the last event, or -1 before the first one and whenever a client
    // starts or stops.
    static std::int64_t previousProximityStatus;

  private:
    struct Tap {
        CFOwner<CFStringRef> processName;
        CFOwner<CFMachPortRef> port;
    };

    static std::vector<Tap>& tapPorts();
    static void sendPressure(CGEventRef event);
    static void sendProximity(CGEventRef event);

    static PressureReplier* commandServer;
    static PressureReplier* tabletServer;
    static int previousPressure;
    static int oldX;
    static int oldY;
    static std::int64_t previousPointerType;
};
