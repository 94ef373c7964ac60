// Points. Those of events are in pixels of the screen, from its top left corner.
#pragma once

extern "C" {

#if defined(__LP64__)
using CGFloat = double;
#else
using CGFloat = float;
#endif

struct CGPoint {
    CGFloat x;
    CGFloat y;
};

}  // extern "C"
