// Those who tap this process's pen events, and what they still have to get.
//
// An event goes to every tap at once. What a tap does not take is kept for it, in order, until it
// does; one that is kMostWaiting events behind is cut off, because a reader that has stopped must
// cost nobody anything. The driver never waits for a tap.
//
// While the system has no descriptor for another tap, those that come are left waiting: until a tap
// goes, or for a second.
//
// Taps are this user's and root's. A driver that runs as root serves everybody, because whoever
// taps it acts for the person at the tablet, and who that is the driver cannot know.
//
// Owner: main. Threads: that of the loop. Cost: an event allocates nothing while the taps keep up.
// Failure: the constructor throws std::system_error when nobody could tap this process.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <list>
#include <vector>

#include "driver/Descriptor.h"
#include "driver/Loop.h"
#include "driver/Timer.h"
#include "frameworks/CoreGraphics/PenEventRecord.h"

namespace driver {

class TapServer {
  public:
    static constexpr std::size_t kMostTaps = 64;
    static constexpr std::size_t kMostWaiting = 4096;

    explicit TapServer(Loop& itsLoop);
    TapServer(const TapServer&) = delete;
    TapServer& operator=(const TapServer&) = delete;
    ~TapServer();

    void Post(const penEvents::Record& event);

    std::size_t CountOfTaps() const { return taps.size(); }
    // Whether every tap has got everything.
    bool IsDone() const;
    // Cuts off those who have not.
    void CutOffTheSlow();
    // Called when a tap has come, has gone, or has got the last event that was kept for it.
    void WhenChanged(std::function<void()> itsCallBack) { callBack = std::move(itsCallBack); }

  private:
    struct Tap {
        Descriptor socket;
        // From FIRST on.
        std::vector<penEvents::Record> waiting;
        std::size_t first = 0;

        bool IsBehind() const { return first < waiting.size(); }
    };
    using Place = std::list<Tap>::iterator;
    enum class Sent { kAll, kNotYet, kNever };

    void Accept();
    void Rest();
    void Wake();
    void Serve(Place tap, std::uint32_t events);
    static Sent Send(const Tap& tap, const penEvents::Record& event);
    // False when the tap has to go.
    bool Hand(Tap& tap, const penEvents::Record& event);
    bool Catch(Tap& tap);
    void Drop(Place tap);
    void Say() const;

    Loop& loop;
    const Descriptor listener;
    // For the end of a rest. Made beforehand: there is no descriptor for it then.
    Timer alarm;
    // Descriptors lead to places in it, so they must not move.
    std::list<Tap> taps;
    std::function<void()> callBack;
};

}  // namespace driver
