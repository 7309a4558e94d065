#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kelvadrome {

/// A picture in shades of grey: a byte a pixel, 0 black and 255 white, row after row from the top, with
/// nothing between the rows.
struct GreyPicture {
    std::size_t width = 0;
    std::size_t height = 0;
    std::vector<std::uint8_t> pixels = {}; // width * height

    bool operator==(const GreyPicture&) const = default;
};

} // namespace kelvadrome
