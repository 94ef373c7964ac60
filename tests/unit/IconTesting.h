// What the tests of icons and images share: icon files made by hand, images, and the pixels of PNG
// files.
#pragma once

#include <ImageIO/ImageIO.h>
#include <LaunchServices/UTCoreTypes.h>
#include <gtest/gtest.h>
#include <png.h>

#include <random>
#include <string>

#include "PropertyListTesting.h"
#include "Support/DynamicLibrary.h"

namespace icontest {

constexpr std::size_t kSide = 128;
constexpr std::size_t kPixels = kSide * kSide;
constexpr std::size_t kBytes = 4 * kPixels;

inline std::string BigEndian(std::size_t value) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8) {
        bytes += static_cast<char>(value >> shift & 0xFF);
    }
    return bytes;
}

inline std::string Element(const std::string& type, const std::string& content) {
    return type + BigEndian(8 + content.size()) + content;
}

inline std::string Family(const std::string& elements) {
    return Element("icns", elements);
}

// Pixels of alpha, red, green and blue where every byte may be any.
inline std::string RandomPixels(unsigned seed) {
    std::mt19937 random(seed);
    std::string pixels(kBytes, '\0');
    for (char& byte : pixels) {
        byte = static_cast<char>(random());
    }
    return pixels;
}

// Opaque pixels with long runs, short ones and none.
inline std::string PicturePixels() {
    std::string pixels(kBytes, '\xFF');
    for (std::size_t pixel = 0; pixel < kPixels; ++pixel) {
        const std::size_t x = pixel % kSide;
        const std::size_t y = pixel / kSide;
        pixels[4 * pixel + 1] = static_cast<char>(y < 40 ? 17 : x * y);
        pixels[4 * pixel + 2] = static_cast<char>(x < 64 ? y : x);
        pixels[4 * pixel + 3] = static_cast<char>(pixel / 5);
    }
    return pixels;
}

// The colours of PIXELS as an icon file has them, packed with runs where there are at least three
// equal bytes.
inline std::string Packed(const std::string& pixels) {
    std::string packed(4, '\0');
    for (std::size_t colour = 1; colour <= 3; ++colour) {
        std::string plain;
        for (std::size_t pixel = 0; pixel < kPixels; ++pixel) {
            plain += pixels[4 * pixel + colour];
        }
        const auto runAt = [&plain](std::size_t position) {
            std::size_t length = 1;
            while (length < 130 && position + length < plain.size() &&
                   plain[position + length] == plain[position]) {
                ++length;
            }
            return length;
        };
        for (std::size_t position = 0; position < plain.size();) {
            const std::size_t run = runAt(position);
            if (run >= 3) {
                packed += static_cast<char>(run + 125);
                packed += plain[position];
                position += run;
                continue;
            }
            std::size_t count = 0;
            while (count < 128 && position + count < plain.size() && runAt(position + count) < 3) {
                ++count;
            }
            packed += static_cast<char>(count - 1);
            packed += plain.substr(position, count);
            position += count;
        }
    }
    return packed;
}

inline std::string Opaque(std::string pixels) {
    for (std::size_t pixel = 0; pixel < pixels.size() / 4; ++pixel) {
        pixels[4 * pixel] = '\xFF';
    }
    return pixels;
}

// An image of PIXELS, which must outlive it.
class Image {
  public:
    Image(const std::string& pixels, std::size_t width, std::size_t height) {
        const CGDataProviderRef provider =
            CGDataProviderCreateWithData(nullptr, pixels.data(), pixels.size(), nullptr);
        const CGColorSpaceRef space = CGColorSpaceCreateDeviceRGB();
        image = CGImageCreate(width, height, 8, 32, 4 * width, space,
                              static_cast<CGBitmapInfo>(kCGImageAlphaFirst), provider, nullptr,
                              false, kCGRenderingIntentDefault);
        CGColorSpaceRelease(space);
        CGDataProviderRelease(provider);
    }
    Image(const Image&) = delete;
    Image& operator=(const Image&) = delete;
    ~Image() { CGImageRelease(image); }

    operator CGImageRef() const { return image; }

  private:
    CGImageRef image = nullptr;
};

inline Owned<CGImageDestinationRef> Destination(const std::string& path) {
    return CGImageDestinationCreateWithURL(FileURL(path), kUTTypePNG, 1, nullptr);
}

inline bool WritePNG(const std::string& pixels, const std::string& path, std::size_t width = kSide,
                     std::size_t height = kSide) {
    const Image image(pixels, width, height);
    const Owned<CGImageDestinationRef> destination = Destination(path);
    if (destination == nullptr) return false;
    CGImageDestinationAddImage(destination, image, nullptr);
    return CGImageDestinationFinalize(destination);
}

struct Picture {
    std::size_t width = 0;
    std::size_t height = 0;
    // Alpha, red, green, blue.
    std::string pixels;
};

inline Picture ReadPNG(const std::string& path) {
    static const frameworks::DynamicLibrary& library =
        *new frameworks::DynamicLibrary("libpng16.so.16");
    decltype(&png_image_begin_read_from_file) begin = nullptr;
    decltype(&png_image_finish_read) finish = nullptr;
    Picture picture;
    if (!library.Find("png_image_begin_read_from_file", begin) ||
        !library.Find("png_image_finish_read", finish)) {
        ADD_FAILURE() << "libpng is missing";
        return picture;
    }
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (begin(&image, path.c_str()) == 0) {
        ADD_FAILURE() << path << ": " << image.message;
        return picture;
    }
    image.format = PNG_FORMAT_ARGB;
    picture.width = image.width;
    picture.height = image.height;
    picture.pixels.resize(PNG_IMAGE_SIZE(image));
    EXPECT_NE(finish(&image, nullptr, picture.pixels.data(), 0, nullptr), 0) << image.message;
    return picture;
}

}  // namespace icontest
