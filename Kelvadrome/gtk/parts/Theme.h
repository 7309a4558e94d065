#pragma once

#include "Kelvadrome/model/Screen.h"

/// The look of the windows: `desktop.css` with the colours of `Design.h`, which follow light, dark and high
/// contrast.
namespace kelvadrome::Theme {

/// Loads the style sheet for the default display. After the toolkit has been set up.
void install();
void apply(Appearance appearance);

} // namespace kelvadrome::Theme
