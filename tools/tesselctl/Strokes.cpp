#include "tesselctl/Strokes.h"

#include <algorithm>

namespace tesselctl {

// The pressure of an event comes before its position. One that no position follows belongs to a pen
// that rests.
void Strokes::PressHarder() {
    if (isDown && !isTold) {
        StrokePoint& last = strokes.back().points.back();
        last.pressure = std::max(last.pressure, pressure);
    }
    isTold = true;
}

void Strokes::AddPoint(const PenEvent& event) {
    if (IsFull()) return;
    strokes.back().points.push_back(
        {static_cast<double>(event.x), static_cast<double>(event.y), pressure});
    count++;
    isTold = true;
}

void Strokes::Take(const PenEvent& event) {
    switch (event.what) {
        case PenWhat::kPressure:
            PressHarder();
            pressure = std::clamp(static_cast<double>(event.pressure) / kFullPressure, 0.0, 1.0);
            isTold = false;
            break;
        case PenWhat::kDown:
            // Told twice to whoever watches one process twice.
            if (isDown || IsFull()) break;
            strokes.push_back({isEraser, {}});
            isDown = true;
            AddPoint(event);
            break;
        case PenWhat::kMove:
            if (!isDown) {
                // The beginning came before we listened.
                if (IsFull()) break;
                strokes.push_back({isEraser, {}});
                isDown = true;
            }
            AddPoint(event);
            break;
        case PenWhat::kUp: {
            if (!isDown) break;
            PressHarder();
            const StrokePoint& last = strokes.back().points.back();
            if (last.x != event.x || last.y != event.y) AddPoint(event);
            isDown = false;
            break;
        }
        case PenWhat::kTool:
            isEraser = event.word == "eraser";
            break;
        case PenWhat::kProximity:
        case PenWhat::kOther:
            break;
    }
}

}  // namespace tesselctl
