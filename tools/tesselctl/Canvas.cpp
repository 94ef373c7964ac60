#include "tesselctl/Canvas.h"

#include <algorithm>
#include <cmath>

namespace tesselctl {
namespace {

constexpr std::size_t kChannels = 3;
constexpr double kOpaque = 255;

std::size_t WithinFirst(double place, std::size_t size) {
    return static_cast<std::size_t>(std::clamp(place, 0.0, static_cast<double>(size)));
}

std::uint8_t Mixed(std::uint8_t paper, std::uint8_t ink, unsigned share) {
    return static_cast<std::uint8_t>((paper * (255 - share) + ink * share + 127) / 255);
}

// How much of the pixel around (x, y) the moving disc covers, from 0 to 1: by the distance from its
// edge, which is as good as exact for a pixel.
double Covered(double x, double y, const Disc& from, const Disc& to) {
    const double dx = to.x - from.x;
    const double dy = to.y - from.y;
    const double length2 = dx * dx + dy * dy;
    const double along = (x - from.x) * dx + (y - from.y) * dy;
    const double share = length2 > 0 ? std::clamp(along / length2, 0.0, 1.0) : 1.0;
    const double radius = from.radius + share * (to.radius - from.radius);
    const double distance = std::hypot(x - from.x - share * dx, y - from.y - share * dy);
    return std::clamp(radius - distance + 0.5, 0.0, 1.0);
}

}  // namespace

Canvas::Canvas(std::size_t itsWidth, std::size_t itsHeight, Colour paper)
    : width(itsWidth),
      height(itsHeight),
      pixels(width * height * kChannels),
      coverage(width * height),
      touched{width, height, 0, 0} {
    for (std::size_t at = 0; at < pixels.size(); at += kChannels) {
        pixels[at] = paper.red;
        pixels[at + 1] = paper.green;
        pixels[at + 2] = paper.blue;
    }
}

Canvas::Area Canvas::AreaOf(const Disc& from, const Disc& to) const {
    const double reach = std::max(from.radius, to.radius) + 1;
    return {WithinFirst(std::floor(std::min(from.x, to.x) - reach), width),
            WithinFirst(std::floor(std::min(from.y, to.y) - reach), height),
            WithinFirst(std::ceil(std::max(from.x, to.x) + reach), width),
            WithinFirst(std::ceil(std::max(from.y, to.y) + reach), height)};
}

void Canvas::Draw(const Disc& from, const Disc& to) {
    const Area area = AreaOf(from, to);
    for (std::size_t y = area.top; y < area.bottom; y++) {
        for (std::size_t x = area.left; x < area.right; x++) {
            const double share =
                Covered(static_cast<double>(x) + 0.5, static_cast<double>(y) + 0.5, from, to);
            std::uint8_t& drawn = coverage[y * width + x];
            drawn = std::max(drawn, static_cast<std::uint8_t>(std::lround(share * kOpaque)));
        }
    }
    touched = {std::min(touched.left, area.left), std::min(touched.top, area.top),
               std::max(touched.right, area.right), std::max(touched.bottom, area.bottom)};
}

void Canvas::Ink(Colour colour) {
    for (std::size_t y = touched.top; y < touched.bottom; y++) {
        for (std::size_t x = touched.left; x < touched.right; x++) {
            std::uint8_t& drawn = coverage[y * width + x];
            std::uint8_t* const pixel = &pixels[(y * width + x) * kChannels];
            pixel[0] = Mixed(pixel[0], colour.red, drawn);
            pixel[1] = Mixed(pixel[1], colour.green, drawn);
            pixel[2] = Mixed(pixel[2], colour.blue, drawn);
            drawn = 0;
        }
    }
    touched = {width, height, 0, 0};
}

Colour Canvas::At(std::size_t x, std::size_t y) const {
    const std::uint8_t* const pixel = &pixels[(y * width + x) * kChannels];
    return {pixel[0], pixel[1], pixel[2]};
}

}  // namespace tesselctl
