#include "LaunchServices/IconFamily.h"

#include <OSServices/IconStorage.h>

#include <array>
#include <cstdint>

namespace frameworks {
namespace {

constexpr std::size_t kHeadSize = 8;
constexpr std::string_view kPackedMark("\0\0\0\0", 4);
constexpr std::size_t kBytesPerPixel = 4;
// Where a pixel has its red, green and blue.
constexpr std::array<std::size_t, 3> kColours = {1, 2, 3};
constexpr char kOpaque = '\xFF';

std::uint32_t BigEndian(std::string_view four) {
    std::uint32_t value = 0;
    for (const char byte : four.substr(0, 4)) {
        value = value << 8 | static_cast<unsigned char>(byte);
    }
    return value;
}

struct Element {
    OSType type;
    std::string_view content;
};

// Takes the first element off ELEMENTS; nothing when it does not lie within them.
std::optional<Element> TakeElement(std::string_view& elements) {
    if (elements.size() < kHeadSize) return std::nullopt;
    const std::uint32_t size = BigEndian(elements.substr(4));
    if (size < kHeadSize || size > elements.size()) return std::nullopt;
    const Element element{BigEndian(elements), elements.substr(kHeadSize, size - kHeadSize)};
    elements.remove_prefix(size);
    return element;
}

// Takes the packed bytes of one colour off PACKED and puts them where PIXELS have it. A run that
// goes beyond the last pixel is malformed.
bool UnpackColour(std::string_view& packed, std::string& pixels, std::size_t colour) {
    std::size_t pixel = 0;
    while (pixel < kThumbnailPixels) {
        if (packed.empty()) return false;
        const auto control = static_cast<unsigned char>(packed.front());
        packed.remove_prefix(1);
        const bool isRun = control >= 0x80;
        const std::size_t count = isRun ? control - 125u : control + 1u;
        const std::size_t used = isRun ? 1 : count;
        if (count > kThumbnailPixels - pixel || used > packed.size()) return false;
        for (std::size_t index = 0; index < count; ++index) {
            pixels[(pixel + index) * kBytesPerPixel + colour] = packed[isRun ? 0 : index];
        }
        packed.remove_prefix(used);
        pixel += count;
    }
    return true;
}

}  // namespace

bool IsIconFamily(std::string_view bytes) {
    if (bytes.size() < kHeadSize || BigEndian(bytes) != kIconFamilyType ||
        BigEndian(bytes.substr(4)) != bytes.size()) {
        return false;
    }
    bytes.remove_prefix(kHeadSize);
    while (!bytes.empty()) {
        if (!TakeElement(bytes)) return false;
    }
    return true;
}

std::optional<std::string_view> IconElement(std::string_view family, OSType type) {
    if (!IsIconFamily(family)) return std::nullopt;
    family.remove_prefix(kHeadSize);
    while (const std::optional<Element> element = TakeElement(family)) {
        if (element->type == type) return element->content;
    }
    return std::nullopt;
}

std::optional<std::string> ThumbnailPixels(std::string_view element) {
    // Nobody packs so badly that it takes more bytes than before.
    if (element.size() == kThumbnailBytes) return std::string(element);
    if (element.substr(0, kPackedMark.size()) != kPackedMark) return std::nullopt;
    element.remove_prefix(kPackedMark.size());
    std::string pixels(kThumbnailBytes, kOpaque);
    for (const std::size_t colour : kColours) {
        if (!UnpackColour(element, pixels, colour)) return std::nullopt;
    }
    if (!element.empty()) return std::nullopt;
    return pixels;
}

}  // namespace frameworks
