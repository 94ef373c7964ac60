// Where an image's bytes come from.
//
// Backed by frameworks/CoreGraphics/DataProvider. What is here: bytes in memory.
// Ownership: Create hands over one reference, which is given back with CGDataProviderRelease; the
// bytes stay the caller's until releaseData is called, when the last reference goes. Threads: any;
// releaseData runs on the thread that lets the last reference go. Failure: null.
#pragma once

#include <cstddef>

extern "C" {

using CGDataProviderRef = struct CGDataProvider*;

using CGDataProviderReleaseDataCallback = void (*)(void* info, const void* data, std::size_t size);

// releaseData may be null. Null without bytes.
CGDataProviderRef CGDataProviderCreateWithData(void* info, const void* data, std::size_t size,
                                               CGDataProviderReleaseDataCallback releaseData);
// Null is allowed.
void CGDataProviderRelease(CGDataProviderRef provider);

}  // extern "C"
