#pragma once

#include "Kelvadrome/model/CardRows.h"
#include "Kelvadrome/terminal/panel/PanelView.h"

#include <vector>

/// A row of the panel as lines of at most `columns` columns. Pure. Keys are named only on the selected row,
/// since only there they work.
namespace kelvadrome::CardLines {

std::vector<StyledLine> card(const PanelCard& row, bool selected, bool expanded, int columns);
std::vector<StyledLine> hold(const HoldRow& row, bool selected, int columns);

} // namespace kelvadrome::CardLines
