#pragma once

#include "Kelvadrome/platform/linux/desk/StatusNotifierItem.h"

#include <cstdint>
#include <vector>

namespace kelvadrome {

/// The mark on its tile in the sizes that trays have, with the count in a corner when it is above 0; more
/// than 9 reads "9+".
std::vector<StatusNotifierItem::Pixmap> trayImages(std::int64_t count);

} // namespace kelvadrome
