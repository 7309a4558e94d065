#pragma once

#include <string>

namespace kelvadrome {

/// The icon theme's name for one of the system's own symbols, such as "macwindow". One that isn't known gives
/// the theme's picture for a missing icon.
std::string barIcon(const std::string& symbol);

} // namespace kelvadrome
