// Icon files: whatever the bytes are, nothing is read past them, and an image is whole or none.
#include <OSServices/IconStorage.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "LaunchServices/IconFamily.h"
#include "Require.h"

namespace {

void LookAtElement(std::string_view element) {
    const std::optional<std::string> pixels = frameworks::ThumbnailPixels(element);
    if (!pixels) return;
    Require(pixels->size() == frameworks::kThumbnailBytes, "an image has all its pixels");
    if (element.size() == frameworks::kThumbnailBytes) {
        Require(*pixels == element, "raw pixels are taken as they stand");
        return;
    }
    for (std::size_t pixel = 0; pixel < pixels->size(); pixel += 4) {
        Require((*pixels)[pixel] == '\xFF', "packed pixels are opaque");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const std::optional<std::string_view> element =
        frameworks::IconElement(bytes, kThumbnail32BitData);
    if (element) {
        Require(frameworks::IsIconFamily(bytes), "only a family has elements");
        Require(element->data() >= bytes.data() &&
                    element->data() + element->size() <= bytes.data() + bytes.size(),
                "an element lies within its file");
        LookAtElement(*element);
    }
    // Behind the heads, which a fuzzer has to get right first.
    LookAtElement(bytes);
    return 0;
}
