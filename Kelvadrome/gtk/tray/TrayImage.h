#pragma once

#include "Kelvadrome/model/TrayItem.h"

#include <cstdint>
#include <vector>

namespace kelvadrome {

/// The mark on its tile in the sizes that trays have, with the count in a corner when it is above 0; more
/// than 9 reads "9+".
std::vector<TrayItem::Pixmap> trayImages(std::int64_t count);

/// From what toolkits draw: premultiplied, 32 bits a pixel in the machine's own order.
TrayItem::Pixmap fromPremultiplied(
    std::int32_t width, std::int32_t height, std::size_t stride, const unsigned char* pixels);

} // namespace kelvadrome
