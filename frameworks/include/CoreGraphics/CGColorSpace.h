// What the numbers of a pixel mean.
//
// What is here: the device's red, green and blue, which an image file gets as sRGB.
// Ownership: Create hands over one reference, which is given back with CGColorSpaceRelease.
// Threads: any. Failure: null when memory runs out.
#pragma once

#include <cstdint>

extern "C" {

using CGColorSpaceRef = struct CGColorSpace*;

enum CGColorRenderingIntent : std::int32_t {
    kCGRenderingIntentDefault = 0,
    kCGRenderingIntentAbsoluteColorimetric = 1,
    kCGRenderingIntentRelativeColorimetric = 2,
    kCGRenderingIntentPerceptual = 3,
    kCGRenderingIntentSaturation = 4
};

CGColorSpaceRef CGColorSpaceCreateDeviceRGB(void);
// Null is allowed.
void CGColorSpaceRelease(CGColorSpaceRef cs);

}  // extern "C"
