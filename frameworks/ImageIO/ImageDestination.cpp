#include "ImageIO/ImageDestination.h"

#include <LaunchServices/UTCoreTypes.h>
#include <sys/stat.h>

#include <new>
#include <optional>

#include "CoreFoundation/URL.h"
#include "ImageIO/PNG.h"
#include "Support/ReplacedFile.h"

using frameworks::Checked;
using frameworks::CheckedMutable;
using frameworks::Misuse;
using frameworks::Ref;
using frameworks::ReplacedFile;

namespace {

constexpr mode_t kModeOfNewFiles = S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;

bool IsFolder(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// Whether there can be a file at PATH.
bool IsPlaceForFile(const std::string& path) {
    return !IsFolder(path) && IsFolder(path.substr(0, path.rfind('/') + 1));
}

}  // namespace

void CGImageDestination::Add(CGImage* added) {
    if (added == nullptr || image) {
        isSpoilt = true;
        return;
    }
    image = Ref<CGImage>::Retain(added);
}

bool CGImageDestination::Finish() {
    if (!image || isSpoilt) return false;
    isSpoilt = true;
    const std::optional<std::string> file = frameworks::EncodePNG(*image);
    // An image can be made again, so nobody waits until it is on the medium.
    return file && frameworks::ReplaceFile(path, *file, ReplacedFile::Link::kReplaced,
                                           ReplacedFile::Durability::kNone, kModeOfNewFiles);
}

std::string CGImageDestination::Describe() const {
    return DescribeHead() + "{path = " + path + "}";
}

CGImageDestinationRef CGImageDestinationCreateWithURL(CFURLRef url, CFStringRef type,
                                                      std::size_t count, CFDictionaryRef options) {
    constexpr const char* kCall = "CGImageDestinationCreateWithURL";
    const __CFURL& address = Checked<__CFURL>(url, kCall);
    if (options != nullptr) {
        Misuse(kCall, "there are no options here");
    }
    if (!CFEqual(type, kUTTypePNG) || count != 1) {
        return nullptr;
    }
    try {
        std::optional<std::string> path = address.Path();
        return path && IsPlaceForFile(*path) ? new CGImageDestination(std::move(*path)) : nullptr;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void CGImageDestinationAddImage(CGImageDestinationRef idst, CGImageRef image,
                                CFDictionaryRef properties) {
    constexpr const char* kCall = "CGImageDestinationAddImage";
    CGImageDestination& destination = CheckedMutable<CGImageDestination>(idst, kCall);
    if (properties != nullptr) {
        Misuse(kCall, "there are no properties here");
    }
    destination.Add(image == nullptr ? nullptr : &CheckedMutable<CGImage>(image, kCall));
}

bool CGImageDestinationFinalize(CGImageDestinationRef idst) {
    CGImageDestination& destination =
        CheckedMutable<CGImageDestination>(idst, "CGImageDestinationFinalize");
    try {
        return destination.Finish();
    } catch (const std::bad_alloc&) {
        return false;
    }
}
