#pragma once

#include "Kelvadrome/model/CardRows.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvadrome {

/// The inbox without the page: all open cards in words of our own.
struct InboxList {
    std::string header;
    std::string relief;
    std::optional<std::string> error;
    /// Answers under way whose card is gone, then what needs the user, then the other open cards, then those
    /// snoozed.
    std::vector<PanelRow> rows;
    std::vector<std::string> pressed; // answers under way whose row doesn't show
    std::int64_t elsewhere = 0;       // open cards that the scope filter hides
    std::size_t snoozed = 0;          // so many of the last rows come back later
    bool clear = false;               // nothing waits anywhere

    bool operator==(const InboxList&) const = default;
};

/// `filter`: those cards alone in which each of its words stands.
InboxList inboxList(const AppState& state, WallTime now, std::string_view filter = {});

} // namespace kelvadrome
