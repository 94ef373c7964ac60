// Points. Those of events are in pixels of the screen, from its top left corner.
#pragma once

extern "C" {

using CGFloat = double;

struct CGPoint {
    CGFloat x;
    CGFloat y;
};

}  // extern "C"
