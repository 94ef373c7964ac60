#include "support/Picture.h"

#include <png.h>

#include "support/Waiting.h"

namespace {

png_image Empty() {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    return image;
}

}  // namespace

Picture ReadPng(const std::filesystem::path& file) {
    png_image image = Empty();
    if (png_image_begin_read_from_file(&image, file.c_str()) == 0) {
        throw Failed(file.string() + ": " + image.message);
    }
    image.format = PNG_FORMAT_RGBA;
    Picture picture{image.width, image.height, {}};
    picture.pixels.resize(PNG_IMAGE_SIZE(image));
    if (png_image_finish_read(&image, nullptr, picture.pixels.data(), 0, nullptr) == 0) {
        throw Failed(file.string() + ": " + image.message);
    }
    return picture;
}

void WritePng(const std::filesystem::path& file, const Picture& picture) {
    png_image image = Empty();
    image.width = picture.width;
    image.height = picture.height;
    image.format = PNG_FORMAT_RGBA;
    if (png_image_write_to_file(&image, file.c_str(), 0, picture.pixels.data(), 0, nullptr) == 0) {
        throw Failed(file.string() + ": " + image.message);
    }
}
