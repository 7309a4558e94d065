#pragma once

#include "Kelvadrome/model/Screen.h"

/// The look of the windows: one spacing scale (4, 8, 12, 18 points), the toolkit's type scale, one accent.
/// Colours are the toolkit's named ones, so that light, dark and high contrast follow.
namespace kelvadrome::Theme {

/// Loads the style sheet for the default display. After the toolkit has been set up.
void install();
void apply(Appearance appearance);

} // namespace kelvadrome::Theme
