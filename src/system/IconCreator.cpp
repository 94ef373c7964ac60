#include "system/IconCreator.h"

#include <Carbon/Carbon.h>

#include <memory>
#include <optional>
#include <vector>

#include "apps/Paths.h"
#include "core/Helpers.h"
#include "core/Owners.h"
#include "system/Utf8Of.h"

namespace {

constexpr char kTarget[] = "/Users/Shared/icon.png";
constexpr std::size_t kSide = 128;
constexpr std::size_t kBitsPerComponent = 8;
constexpr std::size_t kBytesPerPixel = 4;
constexpr std::size_t kBytesPerRow = kSide * kBytesPerPixel;
constexpr std::size_t kBytes = kSide * kBytesPerRow;

// Owns a block of the Memory Manager.
struct DisposeHandleOfBlock {
    void operator()(Handle handle) const { DisposeHandle(handle); }
};
using HandleOwner = std::unique_ptr<Ptr, DisposeHandleOfBlock>;

// Core Graphics has a release function of its own for every type.
struct ReleaseGraphics {
    void operator()(CGImageRef image) const { CGImageRelease(image); }
    void operator()(CGColorSpaceRef space) const { CGColorSpaceRelease(space); }
    void operator()(CGDataProviderRef provider) const { CGDataProviderRelease(provider); }
};
template <typename Reference>
using GraphicsOwner = std::unique_ptr<std::remove_pointer_t<Reference>, ReleaseGraphics>;

HandleOwner ReadIconFamily(const std::string& path) {
    const FSRef file = ReferenceTo(path).ref;
    IconFamilyHandle family = nullptr;
    if (ReadIconFromFSRef(&file, &family) != noErr) {
        return HandleOwner();
    }
    return HandleOwner(reinterpret_cast<Handle>(family));
}

// The pixels of the family's image of 128 x 128, or nothing.
std::vector<unsigned char> ReadPixels(Handle family) {
    const HandleOwner pixels(NewHandle(static_cast<Size>(kBytes)));
    if (!pixels || GetIconFamilyData(reinterpret_cast<IconFamilyHandle>(family),
                                     kThumbnail32BitData, pixels.get()) != noErr) {
        return {};
    }
    const auto* const first = reinterpret_cast<const unsigned char*>(*pixels);
    return std::vector<unsigned char>(first, first + kBytes);
}

GraphicsOwner<CGImageRef> MakeImage(const std::vector<unsigned char>& pixels) {
    const GraphicsOwner<CGDataProviderRef> provider(
        CGDataProviderCreateWithData(nullptr, pixels.data(), pixels.size(), nullptr));
    const GraphicsOwner<CGColorSpaceRef> space(CGColorSpaceCreateDeviceRGB());
    return GraphicsOwner<CGImageRef>(
        CGImageCreate(kSide, kSide, kBitsPerComponent, kBitsPerComponent * kBytesPerPixel,
                      kBytesPerRow, space.get(), static_cast<CGBitmapInfo>(kCGImageAlphaFirst),
                      provider.get(), nullptr, false, kCGRenderingIntentDefault));
}

bool Fail(const char* reason) {
    Helpers::logprint(reason);
    return false;
}

}  // namespace

std::string IconCreator::GetIconFileFromBundle(const std::string& bundlePath) {
    const auto bundle = CFOwner<CFBundleRef>::Adopt(Helpers::getBundleRef(bundlePath));
    const CFDictionaryRef information = bundle ? CFBundleGetInfoDictionary(bundle.Get()) : nullptr;
    const CFTypeRef value = information != nullptr
                                ? CFDictionaryGetValue(information, CFSTR("CFBundleIconFile"))
                                : nullptr;
    const std::optional<std::string> name = Utf8Of(value);
    if (!name) {
        return std::string();
    }
    return name->find('.') != std::string::npos ? *name : *name + ".icns";
}

bool IconCreator::SaveImage(CGImageRef image, const std::string& path) {
    const auto url = CFOwner<CFURLRef>::Adopt(CFURLCreateFromFileSystemRepresentation(
        kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path.data()),
        static_cast<CFIndex>(path.size()), false));
    if (!url) {
        return Fail("Icon: Unable to create url to target image file.");
    }
    const auto target = CFOwner<CGImageDestinationRef>::Adopt(
        CGImageDestinationCreateWithURL(url.Get(), kUTTypePNG, 1, nullptr));
    if (!target) {
        return Fail("Icon: Unable to resolve target image file.");
    }
    CGImageDestinationAddImage(target.Get(), image, nullptr);
    return CGImageDestinationFinalize(target.Get()) ||
           Fail("Icon: Writing icon file as png failed.");
}

bool IconCreator::SaveIconFromBundleAsPNG(const std::wstring& bundlePath) {
    // As a C string: an empty text's UTF-8 form is one NUL.
    const std::string bundle = Helpers::wstringToUtf8(bundlePath).c_str();
    std::string icon = GetIconFileFromBundle(bundle);
    if (icon.empty()) {
        Helpers::logprint(
            "Icon: Unable to open application bundle/find icon file, attempting default");
        icon = Helpers::removeExtension(Helpers::splitLastPathComponent(bundle)) + ".icns";
    }
    const std::string path = bundle + "/Contents/Resources/" + icon;
    if (!ReferenceTo(path).exists) {
        return Fail("Icon: Icon file does not exist.");
    }
    const HandleOwner family = ReadIconFamily(path);
    if (!family) {
        return Fail("Icon: Unable to loads icons from file.");
    }
    const std::vector<unsigned char> pixels = ReadPixels(family.get());
    if (pixels.empty()) {
        return Fail("Icon: Unable to extract icon from icon family. Size not available?");
    }
    return SaveImage(MakeImage(pixels).get(), kTarget);
}
