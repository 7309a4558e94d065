#pragma once

#include "Kelvadrome/terminal/panel/PanelContent.h"
#include "Kelvadrome/terminal/panel/StyledText.h"

/// A row of the inbox as lines of at most `columns` columns. Pure.
namespace kelvadrome::CardLines {

/// How much of a row shows.
enum class Extent {
    opening, // what has to be read before it is answered, and what can be pressed
    whole,   // all there is
};

/// Exactly `PanelRules::listHeight` lines that stand for a row in the list.
StyledLines brief(const PanelEntry& row, bool selected, int columns);
/// The selected row, with the keys that act on it.
StyledLines full(const PanelEntry& row, Extent extent, int columns);

} // namespace kelvadrome::CardLines
