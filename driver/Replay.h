// Plays a recording as if its tablet were there: in the time that it took, faster or slower, or as
// fast as the taps take it.
//
// It begins a moment after there are as many taps as were asked for, so that none of them misses
// the beginning, and it is over when all of them have got everything. Played as fast as it goes, it
// waits for the slowest tap, but for no tap that has stopped reading.
//
// Owner: main. Threads: that of the loop. Failure: Problem, when the recording turned out to be
// malformed; the loop has been stopped then, too.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "driver/Loop.h"
#include "driver/Pen.h"
#include "driver/Recording.h"
#include "driver/Screen.h"
#include "driver/TapServer.h"
#include "driver/Timer.h"

namespace driver {

class Replay {
  public:
    // How long a tap that takes nothing is waited for.
    static constexpr std::chrono::seconds kPatience{2};
    // What passes between the last tap that was asked for and the beginning: the service taps when
    // its client asks for that, and the client asks for pen data when it knows of the tap.
    static constexpr std::chrono::milliseconds kGrace{250};

    // SPEED 2 takes half the time; nothing is as fast as it goes. Stops the loop at its end.
    Replay(Loop& itsLoop, TapServer& itsServer, Recording& itsRecording, Screen screen,
           std::optional<double> itsSpeed, std::size_t itsTaps);

  private:
    enum class Phase { kWaiting, kReady, kPlaying, kDraining };

    void Begin();
    void PlayAt(Timer::Clock::time_point moment);
    void WaitForTheSlow();
    void Play();
    bool PlayNext();
    void Post(const PenEvents& events);
    void Note();
    void Finish();
    // When the next event is due. Times beyond a hundred years are as good as that.
    Timer::Clock::time_point Due() const;

    Loop& loop;
    TapServer& server;
    Recording& recording;
    Pen pen;
    const std::optional<double> speed;
    const std::size_t taps;
    Timer timer;
    Phase phase = Phase::kWaiting;
    // Whether the timer is set for the moment in which patience ends.
    bool waitsForTheSlow = false;
    std::optional<Event> next;
    std::int64_t firstMicrosecond = 0;
    Timer::Clock::time_point start;
};

}  // namespace driver
