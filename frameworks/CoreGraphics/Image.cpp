#include "CoreGraphics/Image.h"

#include <new>

#include "CoreFoundation/CallOut.h"

using frameworks::Checked;
using frameworks::CheckedMutable;
using frameworks::Ref;

namespace {

constexpr std::size_t kBitsPerComponent = 8;
constexpr std::size_t kBitsPerPixel = 8 * CGImage::kBytesPerPixel;
// Far beyond every screen, and small enough that no product of them overflows.
constexpr std::size_t kLongestSide = std::size_t{1} << 15;
constexpr std::size_t kLongestRow = std::size_t{1} << 30;

bool IsSide(std::size_t side) {
    return side > 0 && side <= kLongestSide;
}

// Whether SIZE bytes hold all rows; of the last one only the pixels count.
bool HoldsRows(std::size_t size, std::size_t width, std::size_t height, std::size_t bytesPerRow) {
    const std::size_t used = width * CGImage::kBytesPerPixel;
    return bytesPerRow >= used && bytesPerRow <= kLongestRow && size >= used &&
           (size - used) / bytesPerRow >= height - 1;
}

template <typename Graphics>
void ReleaseIfAny(Graphics* object, const char* call) {
    if (object != nullptr) {
        Checked<Graphics>(object, call).Release();
    }
}

}  // namespace

CGDataProvider::~CGDataProvider() {
    if (releaseData != nullptr) {
        frameworks::CallOutToTheClient(releaseData, info, static_cast<const void*>(bytes.data()),
                                       bytes.size());
    }
}

CGDataProviderRef CGDataProviderCreateWithData(void* info, const void* data, std::size_t size,
                                               CGDataProviderReleaseDataCallback releaseData) {
    if (data == nullptr) {
        return nullptr;
    }
    return new (std::nothrow)
        CGDataProvider(info, std::string_view(static_cast<const char*>(data), size), releaseData);
}

void CGDataProviderRelease(CGDataProviderRef provider) {
    ReleaseIfAny(provider, "CGDataProviderRelease");
}

CGColorSpaceRef CGColorSpaceCreateDeviceRGB() {
    return new (std::nothrow) CGColorSpace();
}

void CGColorSpaceRelease(CGColorSpaceRef cs) {
    ReleaseIfAny(cs, "CGColorSpaceRelease");
}

CGImageRef CGImageCreate(std::size_t width, std::size_t height, std::size_t bitsPerComponent,
                         std::size_t bitsPerPixel, std::size_t bytesPerRow, CGColorSpaceRef space,
                         CGBitmapInfo bitmapInfo, CGDataProviderRef provider, const CGFloat* decode,
                         bool, CGColorRenderingIntent) {
    constexpr const char* kCall = "CGImageCreate";
    if (space == nullptr || provider == nullptr) {
        return nullptr;
    }
    Checked<CGColorSpace>(space, kCall);
    CGDataProvider& source = CheckedMutable<CGDataProvider>(provider, kCall);
    const bool isOffered =
        IsSide(width) && IsSide(height) && bitsPerComponent == kBitsPerComponent &&
        bitsPerPixel == kBitsPerPixel && decode == nullptr &&
        bitmapInfo == (static_cast<std::uint32_t>(kCGImageAlphaFirst) | kCGBitmapByteOrderDefault);
    if (!isOffered || !HoldsRows(source.Bytes().size(), width, height, bytesPerRow)) {
        return nullptr;
    }
    return new (std::nothrow)
        CGImage(width, height, bytesPerRow, Ref<CGDataProvider>::Retain(&source));
}

void CGImageRelease(CGImageRef image) {
    ReleaseIfAny(image, "CGImageRelease");
}
