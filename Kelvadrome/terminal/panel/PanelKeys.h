#pragma once

#include "Kelvadrome/terminal/panel/PanelInput.h"
#include "Kelvadrome/terminal/panel/PanelView.h"

/// The keys in words. Pure.
namespace kelvadrome::PanelKeys {

/// All keys, in groups.
StyledLines help(int columns);
/// Those that do something now, the most useful first, as many as fit.
StyledLine line(const PanelContent& content, const PanelFocus& focus, const PanelExtras& extras, int columns);

} // namespace kelvadrome::PanelKeys
