// Strokes as a picture: their width follows the pressure, the pen is dark and the eraser pale red.
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "tesselctl/Canvas.h"
#include "tesselctl/Strokes.h"

namespace tesselctl {

// The longer side of the part that was drawn on becomes kPlotSize pixels long, or less when it
// would be enlarged more than kMostEnlarged times; there is a margin around it.
constexpr double kPlotSize = 1600;
constexpr double kMostEnlarged = 3;

// At least one stroke. A million points may take minutes: `goesOn` is asked now and then, and when
// it says no there is no picture.
std::optional<Canvas> DrawStrokes(const std::vector<Stroke>& strokes,
                                  const std::function<bool()>& goesOn);

}  // namespace tesselctl
