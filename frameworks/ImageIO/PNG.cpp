#include "ImageIO/PNG.h"

#include <cstdint>

#include "ImageIO/PNGLibrary.h"

namespace frameworks {

std::optional<std::string> EncodePNG(const CGImage& image) {
    const PNGLibrary* const library = PNGLibrary::Load();
    if (library == nullptr) return std::nullopt;
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    png.width = static_cast<png_uint_32>(image.Width());
    png.height = static_cast<png_uint_32>(image.Height());
    png.format = PNG_FORMAT_ARGB;
    std::string file(PNG_IMAGE_PNG_SIZE_MAX(png), '\0');
    png_alloc_size_t size = file.size();
    const bool isWritten =
        library->writeToMemory(&png, file.data(), &size, 0, image.Bytes().data(),
                               static_cast<png_int_32>(image.BytesPerRow()), nullptr) != 0;
    if (!isWritten) return std::nullopt;
    file.resize(size);
    return file;
}

}  // namespace frameworks
