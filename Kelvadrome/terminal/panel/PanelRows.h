#pragma once

#include "Kelvadrome/terminal/panel/PanelView.h"

#include <vector>

/// The parts that the panel's picture is put together from. Pure; lines of at most `columns` columns. Text
/// from outside is made safe to show here.
namespace kelvadrome::PanelRows {

int widthOf(const StyledLine& line);
/// What fits of a line; what is cut off leaves an ellipsis.
StyledLine cut(StyledLine line, int columns);
/// Left and right text on one line; the left gives way.
StyledLine spread(StyledLine left, StyledLine right, int columns);
/// Text in one style, wrapped behind an indent, at most `limit` lines when it isn't 0.
void paragraph(std::vector<StyledLine>& out, const std::string& text, Style style, int indent, int columns,
    std::size_t limit = 0);

/// One row of the panel. Keys are named only on the selected row, since only there they work.
std::vector<StyledLine> row(const PanelRow& row, bool selected, const PanelFocus& focus, int columns);
std::vector<StyledLine> agents(const std::vector<AgentLine>& agents, std::size_t count, int columns);
std::vector<StyledLine> link(const PanelLink& link, int columns);
/// The line being typed; `cursor` is relative to the first of the lines.
std::vector<StyledLine> editor(const PanelFocus& focus, int columns, int maxLines, Picture::Cursor& cursor);
/// The keys that do something now, the most useful first, as many as fit.
StyledLine keys(
    const MenuPanelContent& content, const PanelFocus& focus, const PanelExtras& extras, int columns);
/// All keys.
std::vector<StyledLine> help(int columns);

} // namespace kelvadrome::PanelRows
