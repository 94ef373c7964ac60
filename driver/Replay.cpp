#include "driver/Replay.h"

#include <algorithm>
#include <utility>

namespace driver {
namespace {

// How many events are played before the loop looks after the others.
constexpr int kEventsAtOnce = 256;

using Microseconds = std::chrono::duration<double, std::micro>;
constexpr Microseconds kLongest = std::chrono::hours(100 * 365 * 24);

}  // namespace

Replay::Replay(Loop& itsLoop, TapServer& itsServer, Recording& itsRecording, Screen screen,
               std::optional<double> itsSpeed, std::size_t itsTaps)
    : loop(itsLoop),
      server(itsServer),
      recording(itsRecording),
      pen(recording.Model(), screen),
      speed(itsSpeed),
      taps(itsTaps),
      timer(loop, [this] { Play(); }) {
    server.WhenChanged([this] { Note(); });
    Note();
}

void Replay::Note() {
    switch (phase) {
        case Phase::kWaiting:
            if (server.CountOfTaps() >= taps) {
                phase = Phase::kReady;
                PlayAt(Timer::Clock::now() + kGrace);
            }
            break;
        case Phase::kReady:
            break;
        case Phase::kPlaying:
            // Those who were waited for may be done.
            if (!speed && server.IsDone()) {
                PlayAt(Timer::Clock::now());
            }
            break;
        case Phase::kDraining:
            if (server.IsDone()) {
                loop.Stop();
            }
            break;
    }
}

void Replay::Begin() {
    phase = Phase::kPlaying;
    next = recording.Next();
    firstMicrosecond = next ? next->microseconds : 0;
    start = Timer::Clock::now();
}

void Replay::PlayAt(Timer::Clock::time_point moment) {
    waitsForTheSlow = false;
    timer.CallAt(moment);
}

void Replay::WaitForTheSlow() {
    waitsForTheSlow = true;
    timer.CallAt(Timer::Clock::now() + kPatience);
}

Timer::Clock::time_point Replay::Due() const {
    if (!speed) return start;
    // What is longer than the clock counts has no value there.
    const Microseconds since = std::clamp(
        Microseconds(static_cast<double>(next->microseconds - firstMicrosecond) / *speed),
        -kLongest, kLongest);
    return start + std::chrono::duration_cast<Timer::Clock::duration>(since);
}

// Also called when patience has come to its end.
void Replay::Play() {
    if (std::exchange(waitsForTheSlow, false)) {
        server.CutOffTheSlow();
    }
    if (phase == Phase::kDraining) {
        loop.Stop();
        return;
    }
    if (phase == Phase::kReady) {
        Begin();
    }
    for (int count = 0; count < kEventsAtOnce; ++count) {
        if (!PlayNext()) return;
    }
    PlayAt(Timer::Clock::now());
}

// False when it has to be waited for something, or all is played.
bool Replay::PlayNext() {
    if (!next) {
        Finish();
        return false;
    }
    const Timer::Clock::time_point due = Due();
    if (due > Timer::Clock::now()) {
        PlayAt(due);
        return false;
    }
    if (!speed && !server.IsDone()) {
        WaitForTheSlow();
        return false;
    }
    Post(pen.Take(*next));
    next = recording.Next();
    return true;
}

void Replay::Post(const PenEvents& events) {
    for (const penEvents::Record& event : events) {
        server.Post(event);
    }
}

void Replay::Finish() {
    Post(pen.Leave());
    phase = Phase::kDraining;
    WaitForTheSlow();
    Note();
}

}  // namespace driver
