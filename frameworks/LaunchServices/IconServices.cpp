#include <CarbonCore/MacErrors.h>
#include <HIServices/Icons.h>
#include <LaunchServices/IconsCore.h>

#include <cerrno>
#include <new>
#include <optional>
#include <string>

#include "CarbonCore/FileReference.h"
#include "CarbonCore/Handle.h"
#include "LaunchServices/IconFamily.h"
#include "Support/ErrnoStatus.h"
#include "Support/ReadFile.h"

namespace {

// Those of applications have up to a few megabytes.
constexpr std::size_t kLargestFile = std::size_t{64} << 20;

OSStatus ReadFamily(const FSRef& ref, IconFamilyHandle& iconFamily) {
    const std::optional<std::string> path = frameworks::PathOf(ref);
    if (!path) return frameworks::IsRef(ref) ? fnfErr : paramErr;
    const std::optional<std::string> bytes =
        frameworks::ReadRegularFile(path->c_str(), kLargestFile);
    if (!bytes) {
        if (errno == EFBIG) return noIconDataAvailableErr;
        return frameworks::StatusOfErrno(errno);
    }
    if (!frameworks::IsIconFamily(*bytes)) return noIconDataAvailableErr;
    const Handle family = NewHandle(0);
    if (family == nullptr) return memFullErr;
    if (!frameworks::SetHandleContent(family, *bytes)) {
        DisposeHandle(family);
        return memFullErr;
    }
    iconFamily = reinterpret_cast<IconFamilyHandle>(family);
    return noErr;
}

OSErr ReadThumbnail(std::string_view family, Handle pixels) {
    const std::optional<std::string_view> element =
        frameworks::IconElement(family, kThumbnail32BitData);
    const std::optional<std::string> unpacked =
        element ? frameworks::ThumbnailPixels(*element) : std::nullopt;
    const bool isStored = frameworks::SetHandleContent(
        pixels, unpacked ? std::string_view(*unpacked) : std::string_view());
    if (!isStored) return memFullErr;
    return unpacked ? OSErr{noErr} : OSErr{noIconDataAvailableErr};
}

}  // namespace

OSStatus ReadIconFromFSRef(const FSRef* ref, IconFamilyHandle* iconFamily) {
    if (ref == nullptr || iconFamily == nullptr) return paramErr;
    try {
        return ReadFamily(*ref, *iconFamily);
    } catch (const std::bad_alloc&) {
        return memFullErr;
    }
}

OSErr GetIconFamilyData(IconFamilyHandle iconFamily, OSType iconType, Handle h) {
    if (iconFamily == nullptr || h == nullptr || iconType != kThumbnail32BitData) return paramErr;
    try {
        return ReadThumbnail(frameworks::HandleContent(reinterpret_cast<Handle>(iconFamily)), h);
    } catch (const std::bad_alloc&) {
        return memFullErr;
    }
}
