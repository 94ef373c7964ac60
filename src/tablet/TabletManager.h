// Whether, and to whom, pen data goes.
//
// All members are static. Init runs before the pressure thread starts; everything else belongs to
// that thread.
#pragma once

#include <cstdint>

#include "net/PressureReplier.h"

class TabletManager {
  public:
    TabletManager() = delete;

    static void Init(PressureReplier* commandServer, PressureReplier* tabletServer);

    // Whether a client has asked for pressure values and for drag and pen-up events.
    static bool listening;
    // The proximity value of the last event, or -1 before the first one and whenever a client
    // starts or stops.
    static std::int64_t previousProximityStatus;

  private:
    static PressureReplier* commandServer;
    static PressureReplier* tabletServer;
};
