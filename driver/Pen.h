// A tablet's tools: what the device says, one value at a time, becomes pen events, one for each
// change of a whole report.
//
// A tool that comes near is a proximity event and one that leaves is another; in between, touching
// is a down and an up event, and what moves or presses differently is a drag while the tool touches
// and a pointer event while it hovers. A report in which several of these change gives several
// events, in that order: readers take the pressure from drags and pointer events alone, so one of
// them follows a touch that changes it. A tool that leaves while it touches is lifted first; and a
// pressure that was told is taken back, so that nobody is left with it.
//
// Owner: whoever reads the device. Threads: one. Units: pixels, and 0 to 1 for the pressure.
// Failure: none; values out of range count as the nearest one within.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "driver/Event.h"
#include "driver/Screen.h"
#include "driver/TabletModel.h"
#include "frameworks/CoreGraphics/PenEventRecord.h"

namespace driver {

// The events of one report. A report has no more than fit in here.
class PenEvents {
  public:
    const penEvents::Record* begin() const { return events.data(); }
    const penEvents::Record* end() const { return events.data() + count; }

    void Add(const penEvents::Record& event) { events[count++] = event; }

  private:
    std::array<penEvents::Record, 8> events;
    std::size_t count = 0;
};

class Pen {
  public:
    Pen(const TabletModel& itsModel, Screen itsScreen) : model(itsModel), screen(itsScreen) {}

    // Empty until EVENT ends a report.
    PenEvents Take(const Event& event);
    // The device has gone, and its tool with it.
    PenEvents Leave();

  private:
    // What the device has said, value by value.
    struct Raw {
        std::int32_t x = 0;
        std::int32_t y = 0;
        std::int32_t pressure = 0;
        // A bit for each tool.
        unsigned tools = 0;
        bool touches = false;
        bool leftButton = false;
    };
    // What that means.
    struct State {
        // 0 is no tool.
        std::int64_t tool = 0;
        bool isDown = false;
        double x = 0;
        double y = 0;
        double pressure = 0;
    };

    void NoteKey(std::uint16_t code, bool isOn);
    void NoteAxis(std::uint16_t code, std::int32_t value);
    std::int64_t ToolNow() const;
    bool IsDown(std::int64_t tool) const;
    State Now() const;
    PenEvents Report(const State& now);
    void LetGo(const State& now, PenEvents& events);
    void Compare(const State& now, PenEvents& events);
    // A drag or a pointer event.
    void TellPlaceAndPressure(const State& now, PenEvents& events);
    void Tell(penEvents::Type type, const State& state, bool isNear, PenEvents& events);

    const TabletModel model;
    const Screen screen;
    Raw raw;
    State before;
    // As the last event said that says the pressure.
    double toldPressure = 0;
    // Values were lost: the rest of the report means nothing.
    bool isBroken = false;
};

}  // namespace driver
