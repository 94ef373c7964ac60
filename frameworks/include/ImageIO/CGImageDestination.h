// Image I/O: images as files.
//
// Backed by libpng, which is loaded with the first image (frameworks/ImageIO/PNGLibrary).
// What is here: writing one image as a PNG file, which replaces what is at its path when it is
// whole; a link there is replaced itself, not what it points to.
// Different from the Mac: PNG is the only kind of file, and no properties are looked at
// (CGImageDestination_test: Create_ForAnotherType_IsNull, Create_WithProperties_Stops).
// Ownership: Create hands over one reference, given back with CFRelease; the destination keeps its
// image. Threads: one at a time. Failure: null or false, as said per call.
#pragma once

#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFURL.h>
#include <CoreGraphics/CGImage.h>

#include <cstddef>

extern "C" {

using CGImageDestinationRef = struct CGImageDestination*;

// Null for another type than kUTTypePNG, another number of images than 1, an address without a
// path, a folder that is not there, and a path that is a folder's. The options must be null.
CGImageDestinationRef CGImageDestinationCreateWithURL(CFURLRef url, CFStringRef type,
                                                      std::size_t count, CFDictionaryRef options);
// A null image, and one more than the destination holds, are not added, and then the destination
// cannot be finalized. The properties must be null.
void CGImageDestinationAddImage(CGImageDestinationRef idst, CGImageRef image,
                                CFDictionaryRef properties);
// Writes the file, once. False when an image is missing or the file cannot be written; what was
// there before then still is.
bool CGImageDestinationFinalize(CGImageDestinationRef idst);

}  // extern "C"
