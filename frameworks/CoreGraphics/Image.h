// The objects behind CGDataProviderRef, CGColorSpaceRef and CGImageRef.
//
// Threads: any; they do not change. Failure: none.
#pragma once

#include <CoreGraphics/CGImage.h>

#include <string_view>

#include "CoreFoundation/Object.h"

struct CGDataProvider final : frameworks::Object {
    static constexpr const frameworks::Type& kType = frameworks::kDataProviderType;

    CGDataProvider(void* itsInfo, std::string_view itsBytes,
                   CGDataProviderReleaseDataCallback itsReleaseData)
        : Object(kType), info(itsInfo), bytes(itsBytes), releaseData(itsReleaseData) {}
    ~CGDataProvider() override;

    std::string_view Bytes() const { return bytes; }

  private:
    void* const info;
    const std::string_view bytes;
    const CGDataProviderReleaseDataCallback releaseData;
};

struct CGColorSpace final : frameworks::Object {
    static constexpr const frameworks::Type& kType = frameworks::kColorSpaceType;

    CGColorSpace() : Object(kType) {}
};

struct CGImage final : frameworks::Object {
    static constexpr const frameworks::Type& kType = frameworks::kImageType;
    static constexpr std::size_t kBytesPerPixel = 4;

    // The provider's bytes do for all rows.
    CGImage(std::size_t itsWidth, std::size_t itsHeight, std::size_t itsBytesPerRow,
            frameworks::Ref<CGDataProvider> itsProvider)
        : Object(kType),
          width(itsWidth),
          height(itsHeight),
          bytesPerRow(itsBytesPerRow),
          provider(std::move(itsProvider)) {}

    std::size_t Width() const { return width; }
    std::size_t Height() const { return height; }
    std::size_t BytesPerRow() const { return bytesPerRow; }
    // Row by row from the top: alpha, red, green and blue of each pixel.
    std::string_view Bytes() const { return provider->Bytes(); }

  private:
    const std::size_t width;
    const std::size_t height;
    const std::size_t bytesPerRow;
    const frameworks::Ref<CGDataProvider> provider;
};
