#pragma once

namespace kelvadrome {

/// A rectangle in points, counted from the upper left corner.
struct BarArea {
    double x = 0, y = 0, width = 0, height = 0;

    bool operator==(const BarArea&) const = default;
};

inline constexpr double barWidth = 640;
inline constexpr double barHeight = 440;

/// Where the bar stands on a screen of which `visible` is left free by panels and docks.
BarArea barPlace(BarArea visible);

} // namespace kelvadrome
