// The strokes that pen events draw: what lies between a pen's going down and up again.
//
// Owner: whoever plots. Threads: one. Units: pixels of the screen, pressure from 0 to 1.
#pragma once

#include <cstddef>
#include <vector>

#include "tesselctl/PenEvent.h"

namespace tesselctl {

struct StrokePoint {
    double x;
    double y;
    double pressure;
};

struct Stroke {
    bool isEraser;
    std::vector<StrokePoint> points;  // never empty
};

class Strokes {
  public:
    // Far beyond what a hand draws; what comes after as many points is left out.
    static constexpr std::size_t kMostPoints = 1000000;

    void Take(const PenEvent& event);

    const std::vector<Stroke>& All() const { return strokes; }
    bool IsFull() const { return count >= kMostPoints; }

  private:
    void AddPoint(const PenEvent& event);
    void PressHarder();

    std::vector<Stroke> strokes;
    std::size_t count = 0;
    bool isEraser = false;
    bool isDown = false;
    double pressure = 0;
    bool isTold = true;  // whether a point has the pressure
};

}  // namespace tesselctl
