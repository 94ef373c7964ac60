// The object behind CGImageDestinationRef: a path and the image that is to be written there.
//
// Threads: one at a time. Failure: as said per operation.
#pragma once

#include <ImageIO/CGImageDestination.h>

#include <string>

#include "CoreGraphics/Image.h"

struct CGImageDestination final : frameworks::Object {
    static constexpr const frameworks::Type& kType = frameworks::kImageDestinationType;

    explicit CGImageDestination(std::string itsPath) : Object(kType), path(std::move(itsPath)) {}

    // Null, and a second image, spoil the destination.
    void Add(CGImage* added);
    // False without exactly one image, and when the file cannot be written.
    bool Finish();

    std::string Describe() const override;

  private:
    const std::string path;
    frameworks::Ref<CGImage> image;
    bool isSpoilt = false;
};
