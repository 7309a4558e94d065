#pragma once

#include "KelvadromeKit/support/GreyPicture.h"

#include <optional>
#include <string_view>

namespace kelvadrome::RelayQR {

/// White modules around the code, without which cameras don't find it.
inline constexpr std::size_t quietZone = 4;
inline constexpr std::size_t largestScale = 64;

/// The text's bytes as a QR code with error correction M: black on white, each module a square of `scale` by
/// `scale` pixels, the quiet zone around it. Absent for an empty text, for one too long for a code, and for a
/// scale outside 1 to `largestScale`.
std::optional<GreyPicture> image(std::string_view text, std::size_t scale);

} // namespace kelvadrome::RelayQR
