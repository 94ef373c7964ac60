// What a tablet can say: the ranges of its axes and the buttons it has.
//
// Units: the device's own. Threads: any.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace driver {

struct Axis {
    std::int32_t lowest = 0;
    std::int32_t highest = 0;

    // Where VALUE lies between the two, 0 to 1. An axis of one value only is at 0.
    double Share(std::int32_t value) const {
        if (highest <= lowest || value <= lowest) return 0;
        if (value >= highest) return 1;
        return (static_cast<double>(value) - lowest) / (static_cast<double>(highest) - lowest);
    }
};

struct TabletModel {
    std::string name;
    std::uint16_t vendor = 0;
    std::uint16_t product = 0;
    // A device without both is no tablet.
    std::optional<Axis> x;
    std::optional<Axis> y;
    std::optional<Axis> pressure;
    bool hasTouch = false;
    bool hasPen = false;
    bool hasEraser = false;
    bool hasCursor = false;

    bool IsTablet() const { return hasPen && x && y; }
};

}  // namespace driver
