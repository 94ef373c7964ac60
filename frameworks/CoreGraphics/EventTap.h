// A tap on a process that posts pen events: a port whose packets are events.
//
// Owner: see MachPort.h. Threads: events are handed over on the run loop's. Cost: an event
// allocates nothing; one read takes up to kEventsAtOnce of them, and the run loop serves the others
// in between, so that a flood keeps nobody waiting. Failure: Create gives nothing; packets that are
// no events are dropped.
#pragma once

#include <CoreGraphics/CGEvent.h>
#include <sys/types.h>

#include "CoreFoundation/MachPort.h"
#include "CoreGraphics/PenEventRecord.h"

namespace frameworks {

class EventTap final : public __CFMachPort {
  public:
    static constexpr unsigned kEventsAtOnce = 16;

    // Nothing when POSTER cannot be tapped.
    static Ref<__CFMachPort> Create(pid_t poster, CGEventMask wanted, CGEventTapCallBack callBack,
                                    void* userInfo);

  private:
    EventTap(UniqueDescriptor itsSocket, CGEventMask itsWanted, CGEventTapCallBack itsCallBack,
             void* itsUserInfo);

    More Receive(int socket) override;
    void Tell(const penEvents::Record& record);

    const CGEventMask wanted;
    const CGEventTapCallBack callBack;
    void* const userInfo;
};

}  // namespace frameworks
