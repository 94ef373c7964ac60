// A picture to draw round lines on, with smooth edges.
//
// Lines that belong together are drawn first and inked at once, so that where they touch or cross
// they do not become darker.
//
// Owner: whoever plots. Threads: one. Units: pixels; the middle of the first one is (0.5, 0.5).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tesselctl {

struct Colour {
    std::uint8_t red;
    std::uint8_t green;
    std::uint8_t blue;
};

struct Disc {
    double x;
    double y;
    double radius;
};

class Canvas {
  public:
    Canvas(std::size_t itsWidth, std::size_t itsHeight, Colour paper);

    // What a disc covers on its way from one place and size to another. What lies outside the
    // canvas is lost.
    void Draw(const Disc& from, const Disc& to);
    // Colours what has been drawn since the last time.
    void Ink(Colour colour);

    std::size_t Width() const { return width; }
    std::size_t Height() const { return height; }
    // Row by row, three bytes a pixel.
    const std::vector<std::uint8_t>& Pixels() const { return pixels; }
    Colour At(std::size_t x, std::size_t y) const;

  private:
    // From the first column and row up to, and without, the last ones.
    struct Area {
        std::size_t left;
        std::size_t top;
        std::size_t right;
        std::size_t bottom;
    };

    Area AreaOf(const Disc& from, const Disc& to) const;

    std::size_t width;
    std::size_t height;
    std::vector<std::uint8_t> pixels;
    std::vector<std::uint8_t> coverage;  // of what is drawn and not inked: 0 to 255
    Area touched;
};

}  // namespace tesselctl
