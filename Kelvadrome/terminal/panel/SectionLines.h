#pragma once

#include "Kelvadrome/terminal/panel/PanelContent.h"
#include "Kelvadrome/terminal/panel/StyledText.h"

/// Agents, receipts and what a search finds, as lines of at most `columns` columns. Pure.
namespace kelvadrome::SectionLines {

// Rows of a list: an agent and a hit take `PanelRules::listHeight` lines, a receipt one.
StyledLines agent(const PanelAgent& row, bool selected, int columns);
StyledLines receipt(const PanelReceipt& row, bool selected, int columns);
StyledLines hit(const PanelHit& row, bool selected, int columns);
/// Of the command bar; the card that came of a request may take more lines.
StyledLines bar(const CommandBarRow& row, bool selected, int columns);
/// One line an agent, for the foot of the inbox.
StyledLines lamps(const std::vector<PanelAgent>& rows, std::size_t count, int columns);

// What shows beside a list, of the selected row.
StyledLines agentDetail(const PanelAgent& row, int columns);
StyledLines receiptDetail(const PanelReceipt& row, int columns);
StyledLines hitDetail(const PanelHit& row, int columns);
StyledLines barDetail(const CommandBarRow& row, int columns);

/// A card that is over, or isn't in the list.
StyledLines card(const CardRecord& card, WallTime now, int columns);

} // namespace kelvadrome::SectionLines
