#pragma once

#include "KelvadromeKit/support/Clock.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

/// The names of screenshots, such as "shot-20260101T120000Z-a1b2c3".
namespace kelvadrome::ShotID {

inline constexpr std::string_view alphabet = "abcdefghijklmnopqrstuvwxyz0123456789";

/// `random` gives any 32 bits. The slight bias of the modulo is accepted: an id is no secret.
std::string make(WallTime now, const std::function<std::uint32_t()>& random);
/// The same with the system's source.
std::string make(WallTime now);

bool isValid(std::string_view text);

} // namespace kelvadrome::ShotID
