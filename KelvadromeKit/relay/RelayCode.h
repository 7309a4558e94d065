#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kelvadrome::RelayCode {

inline constexpr std::size_t length = 6;

/// The first six ASCII digits of what was typed; fewer when there are no more.
std::string digits(std::string_view text);

} // namespace kelvadrome::RelayCode
