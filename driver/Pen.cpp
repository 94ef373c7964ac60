#include "driver/Pen.h"

#include <linux/input-event-codes.h>

namespace driver {
namespace {

// In the order in which they count when a device says that several are there: some keep the pen
// beside its eraser.
struct Tool {
    std::uint16_t code;
    penEvents::PointerType type;
};
constexpr Tool kTools[] = {
    {BTN_TOOL_RUBBER, penEvents::kEraser}, {BTN_TOOL_PEN, penEvents::kPen},
    {BTN_TOOL_BRUSH, penEvents::kPen},     {BTN_TOOL_PENCIL, penEvents::kPen},
    {BTN_TOOL_AIRBRUSH, penEvents::kPen},  {BTN_TOOL_MOUSE, penEvents::kCursor},
    {BTN_TOOL_LENS, penEvents::kCursor}};

void Set(unsigned& bits, unsigned bit, bool isOn) {
    bits = isOn ? bits | bit : bits & ~bit;
}

}  // namespace

void Pen::NoteKey(std::uint16_t code, bool isOn) {
    if (code == BTN_TOUCH) {
        raw.touches = isOn;
    } else if (code == BTN_LEFT) {
        raw.leftButton = isOn;
    }
    unsigned bit = 1;
    for (const Tool& tool : kTools) {
        if (tool.code == code) {
            Set(raw.tools, bit, isOn);
        }
        bit <<= 1;
    }
}

void Pen::NoteAxis(std::uint16_t code, std::int32_t value) {
    switch (code) {
        case ABS_X:
            raw.x = value;
            break;
        case ABS_Y:
            raw.y = value;
            break;
        case ABS_PRESSURE:
            raw.pressure = value;
            break;
        default:
            break;
    }
}

std::int64_t Pen::ToolNow() const {
    unsigned bit = 1;
    for (const auto& tool : kTools) {
        if ((raw.tools & bit) != 0) return tool.type;
        bit <<= 1;
    }
    return 0;
}

bool Pen::IsDown(std::int64_t tool) const {
    if (tool == 0) return false;
    if (tool == penEvents::kCursor && raw.leftButton) return true;
    // A device without a key for it touches when it presses.
    return model.hasTouch ? raw.touches : model.pressure && model.pressure->Share(raw.pressure) > 0;
}

Pen::State Pen::Now() const {
    State now;
    now.tool = ToolNow();
    now.isDown = IsDown(now.tool);
    // Both edges of the tablet are edges of the screen.
    now.x = model.x ? model.x->Share(raw.x) * (screen.width - 1) : 0;
    now.y = model.y ? model.y->Share(raw.y) * (screen.height - 1) : 0;
    if (model.pressure) {
        now.pressure = model.pressure->Share(raw.pressure);
    } else {
        now.pressure = now.isDown ? 1 : 0;
    }
    return now;
}

PenEvents Pen::Take(const Event& event) {
    if (event.type == EV_SYN && event.code == SYN_DROPPED) {
        isBroken = true;
    } else if (event.type == EV_SYN && event.code == SYN_REPORT) {
        if (!isBroken) return Report(Now());
        isBroken = false;
    } else if (!isBroken && event.type == EV_KEY) {
        NoteKey(event.code, event.value != 0);
    } else if (!isBroken && event.type == EV_ABS) {
        NoteAxis(event.code, event.value);
    }
    return {};
}

PenEvents Pen::Leave() {
    raw.tools = 0;
    raw.touches = false;
    raw.leftButton = false;
    return Report(Now());
}

PenEvents Pen::Report(const State& now) {
    PenEvents events;
    if (now.tool == before.tool) {
        if (now.tool != 0) {
            Compare(now, events);
        }
    } else {
        if (before.tool != 0) {
            LetGo(now, events);
        }
        if (now.tool != 0) {
            Tell(penEvents::kProximity, now, true, events);
        }
        if (now.isDown) {
            Tell(penEvents::kDown, now, true, events);
        }
        if (now.tool != 0 && now.pressure != toldPressure) {
            TellPlaceAndPressure(now, events);
        }
    }
    before = now;
    return events;
}

void Pen::LetGo(const State& now, PenEvents& events) {
    State last = now;
    last.tool = before.tool;
    last.pressure = 0;
    if (before.isDown) {
        Tell(penEvents::kUp, last, true, events);
    }
    if (toldPressure != 0) {
        Tell(penEvents::kPointer, last, true, events);
    }
    Tell(penEvents::kProximity, last, false, events);
}

void Pen::Compare(const State& now, PenEvents& events) {
    const bool turns = now.isDown != before.isDown;
    if (turns) {
        Tell(now.isDown ? penEvents::kDown : penEvents::kUp, now, true, events);
    }
    const bool moves = !turns && (now.x != before.x || now.y != before.y);
    if (moves || now.pressure != toldPressure) {
        TellPlaceAndPressure(now, events);
    }
}

void Pen::TellPlaceAndPressure(const State& now, PenEvents& events) {
    Tell(now.isDown ? penEvents::kDragged : penEvents::kPointer, now, true, events);
}

void Pen::Tell(penEvents::Type type, const State& state, bool isNear, PenEvents& events) {
    if (type == penEvents::kDragged || type == penEvents::kPointer) {
        toldPressure = state.pressure;
    }
    events.Add(
        {penEvents::kVersion, type, state.x, state.y, state.pressure, state.tool, isNear ? 1 : 0});
}

}  // namespace driver
