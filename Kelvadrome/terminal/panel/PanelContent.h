#pragma once

#include "Kelvadrome/model/AgentLines.h"
#include "Kelvadrome/model/CommandBarRows.h"
#include "Kelvadrome/model/LookupRecords.h"
#include "Kelvadrome/model/MenuPanel.h"

#include <optional>
#include <string>
#include <vector>

namespace kelvadrome {

/// A card in the list, or an answer on its way.
struct PanelEntry {
    /// Where in the list it stands, from top to bottom.
    enum class Group { needsYou, open, agentEnded, snoozed };

    Group group = Group::needsYou;
    PanelRow row;

    const std::string& id() const { return cardOf(row).id; }
    const PanelCard* card() const { return std::get_if<PanelCard>(&row); }
    const HoldRow* hold() const { return std::get_if<HoldRow>(&row); }
    bool operator==(const PanelEntry&) const = default;
};

/// An agent's session.
struct PanelAgent {
    AgentLine line;
    std::string agent = {};
    std::string sessionId = {};
    std::size_t cards = 0; // of its cards that stand in the inbox
    bool ended = false;
    bool operator==(const PanelAgent&) const = default;
};

/// A line of the receipts.
struct PanelReceipt {
    std::string id;
    ReceiptEntry::Outcome outcome = ReceiptEntry::Outcome::neutral;
    std::string words = {};
    std::string byWhom = {};
    std::string day = {};  // "Today"
    std::string time = {}; // of the day, in the user's zone
    std::optional<std::string> card = {};

    bool operator==(const PanelReceipt&) const = default;
};

/// One of all the results of a search.
struct PanelHit {
    FoundEntry hit;
    std::string note = {}; // of a decision the answer and its date

    std::string id() const;
    bool operator==(const PanelHit&) const = default;
};

/// Only the cards of an agent or a topic.
struct CardFilter {
    std::string words; // what they have in common
    std::optional<std::string> agent = {};
    std::optional<std::string> sessionId = {};
    std::optional<std::string> topic = {};

    bool passes(const Card& card) const;
    bool operator==(const CardFilter&) const = default;
};

/// What the user wants to see.
struct PanelWish {
    std::optional<CardFilter> only;
    std::string search; // the words whose results are all to show; empty for none

    bool operator==(const PanelWish&) const = default;
};

/// All that the panel can show. A value: drawing it needs nothing else of the model.
struct PanelContent {
    MenuPanelContent menu; // head, state of the connection and error; its rows are those of `inbox`
    std::vector<PanelEntry> inbox;
    std::vector<std::string> underWay; // a line for each answer that isn't known to have arrived
    std::size_t snoozed = 0;
    std::vector<PanelAgent> agents;
    std::vector<PanelReceipt> receipts;
    bool moreReceipts = false; // older ones were left out
    bool receiptsRead = false;
    CommandBarState bar;
    std::vector<CommandBarRow> barRows; // of `bar`, its error not among them
    std::vector<PanelHit> hits;
    bool searched = false; // the daemon's hits are among them
    std::optional<CardRecord> card;
    std::string readError;

    bool operator==(const PanelContent&) const = default;
};

/// `before` is what showed until now: an answer under way keeps the place that its card had there.
PanelContent panelContent(const AppState& state, const LookupResults& reads, const CommandBarState& bar,
    const PanelWish& wish, WallTime now, const std::vector<PanelEntry>& before);

/// Seconds until time alone changes it; absent when nothing will.
std::optional<double> contentChangesIn(const PanelContent& content, const AppState& state, WallTime now);

} // namespace kelvadrome
