// Images: pixels in memory and what they mean.
//
// Backed by frameworks/CoreGraphics/Image. What is here: an image of pixels of 32 bits; alpha
// first, not multiplied into the colours, as icons have them.
// Different from the Mac: any other kind of pixels, a decode array and fewer bytes than the pixels
// need give no image (CGImage_test: Create_OfWhatIsNotOffered_IsNull,
// Create_WithTooFewBytes_IsNull).
// Ownership: Create hands over one reference, which is given back with CGImageRelease; the image
// keeps its provider. Threads: any. Failure: null.
#pragma once

#include <CoreGraphics/CGColorSpace.h>
#include <CoreGraphics/CGDataProvider.h>
#include <CoreGraphics/CGGeometry.h>

#include <cstddef>
#include <cstdint>

extern "C" {

using CGImageRef = struct CGImage*;

enum CGImageAlphaInfo : std::uint32_t {
    kCGImageAlphaNone = 0,
    kCGImageAlphaPremultipliedLast = 1,
    kCGImageAlphaPremultipliedFirst = 2,
    kCGImageAlphaLast = 3,
    kCGImageAlphaFirst = 4,
    kCGImageAlphaNoneSkipLast = 5,
    kCGImageAlphaNoneSkipFirst = 6,
    kCGImageAlphaOnly = 7
};

// An alpha info, and the order of the bytes of a pixel; 0 is the order in which they are named.
enum CGBitmapInfo : std::uint32_t { kCGBitmapByteOrderDefault = 0 };

// The intent and shouldInterpolate say how an image is drawn; it is never drawn here.
CGImageRef CGImageCreate(std::size_t width, std::size_t height, std::size_t bitsPerComponent,
                         std::size_t bitsPerPixel, std::size_t bytesPerRow, CGColorSpaceRef space,
                         CGBitmapInfo bitmapInfo, CGDataProviderRef provider, const CGFloat* decode,
                         bool shouldInterpolate, CGColorRenderingIntent intent);
// Null is allowed.
void CGImageRelease(CGImageRef image);

}  // extern "C"
