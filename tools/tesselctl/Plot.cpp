#include "tesselctl/Plot.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace tesselctl {
namespace {

constexpr Colour kPaper = {255, 255, 255};
constexpr Colour kPenInk = {26, 34, 74};
constexpr Colour kEraserInk = {236, 150, 140};

// Of a line, in pixels of the picture. A pen that does not press still leaves a hair.
constexpr double kThinnest = 0.6;
constexpr double kThickest = 7;
constexpr double kMargin = 24;

// How long a straight piece of a curve may be. Short pieces also keep the drawing of a long line
// from looking at every pixel of the rectangle around it.
constexpr double kPiece = 4;

struct Frame {
    double left = std::numeric_limits<double>::infinity();
    double top = std::numeric_limits<double>::infinity();
    double right = -std::numeric_limits<double>::infinity();
    double bottom = -std::numeric_limits<double>::infinity();
};

Frame FrameOf(const std::vector<Stroke>& strokes) {
    Frame frame;
    for (const Stroke& stroke : strokes) {
        for (const StrokePoint& point : stroke.points) {
            frame.left = std::min(frame.left, point.x);
            frame.top = std::min(frame.top, point.y);
            frame.right = std::max(frame.right, point.x);
            frame.bottom = std::max(frame.bottom, point.y);
        }
    }
    return frame;
}

double ScaleOf(const Frame& frame) {
    const double longest = std::max(frame.right - frame.left, frame.bottom - frame.top);
    return longest > 0 ? std::min(kPlotSize / longest, kMostEnlarged) : 1;
}

// A pen told in whole pixels makes stairs of a slanting line. The true place of a point lies within
// half a pixel: there, it goes towards where its neighbours are.
std::vector<StrokePoint> WithoutStairs(const std::vector<StrokePoint>& told) {
    constexpr int kTurns = 16;
    constexpr double kUncertain = 0.5;
    const auto place = [](double before, double now, double after, double toldPlace) {
        return std::clamp((before + 2 * now + after) / 4, toldPlace - kUncertain,
                          toldPlace + kUncertain);
    };
    std::vector<StrokePoint> points = told;
    for (int turn = 0; turn < kTurns; turn++) {
        StrokePoint before = points.front();
        for (std::size_t i = 1; i + 1 < points.size(); i++) {
            const StrokePoint now = points[i];
            points[i].x = place(before.x, now.x, points[i + 1].x, told[i].x);
            points[i].y = place(before.y, now.y, points[i + 1].y, told[i].y);
            before = now;
        }
    }
    return points;
}

Disc Between(const Disc& one, const Disc& other, double share) {
    const auto mix = [share](double a, double b) { return a + share * (b - a); };
    return {mix(one.x, other.x), mix(one.y, other.y), mix(one.radius, other.radius)};
}

double Distance(const Disc& one, const Disc& other) {
    return std::hypot(one.x - other.x, one.y - other.y);
}

// From one disc to another, bent towards a third.
void DrawCurve(Canvas& canvas, const Disc& from, const Disc& towards, const Disc& to) {
    const double length = Distance(from, towards) + Distance(towards, to);
    const int pieces = std::max(1, static_cast<int>(std::ceil(length / kPiece)));
    Disc before = from;
    for (int piece = 1; piece <= pieces; piece++) {
        const double share = static_cast<double>(piece) / pieces;
        const Disc next =
            Between(Between(from, towards, share), Between(towards, to, share), share);
        canvas.Draw(before, next);
        before = next;
    }
}

// False when it does not go on.
bool DrawStroke(Canvas& canvas, const std::vector<Disc>& discs,
                const std::function<bool()>& goesOn) {
    constexpr std::size_t kAtOnce = 256;
    Disc before = discs.front();
    for (std::size_t i = 1; i + 1 < discs.size(); i++) {
        if (i % kAtOnce == 0 && !goesOn()) return false;
        const Disc middle = Between(discs[i], discs[i + 1], 0.5);
        DrawCurve(canvas, before, discs[i], middle);
        before = middle;
    }
    DrawCurve(canvas, before, Between(before, discs.back(), 0.5), discs.back());
    return goesOn();
}

// Where the strokes come to lie on the picture, and how large it is.
class Placement {
  public:
    explicit Placement(const std::vector<Stroke>& strokes)
        : frame(FrameOf(strokes)), scale(ScaleOf(frame)) {}

    std::size_t Width() const { return SizeOf(frame.right - frame.left); }
    std::size_t Height() const { return SizeOf(frame.bottom - frame.top); }

    std::vector<Disc> DiscsOf(const Stroke& stroke) const {
        std::vector<Disc> discs;
        discs.reserve(stroke.points.size());
        for (const StrokePoint& point : WithoutStairs(stroke.points))
            discs.push_back({(point.x - frame.left) * scale + kMargin,
                             (point.y - frame.top) * scale + kMargin,
                             kThinnest + point.pressure * (kThickest - kThinnest)});
        return discs;
    }

  private:
    std::size_t SizeOf(double length) const {
        return static_cast<std::size_t>(std::ceil(length * scale + 2 * kMargin));
    }

    Frame frame;
    double scale;
};

}  // namespace

std::optional<Canvas> DrawStrokes(const std::vector<Stroke>& strokes,
                                  const std::function<bool()>& goesOn) {
    const Placement placement(strokes);
    Canvas canvas(placement.Width(), placement.Height(), kPaper);
    for (const Stroke& stroke : strokes) {
        if (!DrawStroke(canvas, placement.DiscsOf(stroke), goesOn)) return std::nullopt;
        canvas.Ink(stroke.isEraser ? kEraserInk : kPenInk);
    }
    return canvas;
}

}  // namespace tesselctl
