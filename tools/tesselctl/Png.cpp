#include "tesselctl/Png.h"

#include <png.h>

namespace tesselctl {

std::string WritePng(const Canvas& picture, std::FILE* file) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(picture.Width());
    image.height = static_cast<png_uint_32>(picture.Height());
    image.format = PNG_FORMAT_RGB;
    constexpr int kConvertToEightBits = 0;
    constexpr png_int_32 kRowsAsTheyCome = 0;
    if (png_image_write_to_stdio(&image, file, kConvertToEightBits, picture.Pixels().data(),
                                 kRowsAsTheyCome, nullptr) == 0)
        return image.message;
    return {};
}

}  // namespace tesselctl
