#include "KelvadromeKit/bar/BarPlace.h"

#include <algorithm>

namespace kelvadrome {

BarArea barPlace(BarArea visible) {
    const double gap = std::max(0.12 * visible.height, 64.0);
    return {visible.x + visible.width / 2 - barWidth / 2, visible.y + gap, barWidth, barHeight};
}

} // namespace kelvadrome
