#pragma once

#include "Kelvadrome/model/CardRows.h"

#include <cstdint>
#include <optional>
#include <string>
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
    bool clear = false;               // nothing waits anywhere

    bool operator==(const InboxList&) const = default;
};

InboxList inboxList(const AppState& state, WallTime now);

} // namespace kelvadrome
