#pragma once

#include "KelvadromeKit/support/Clock.h"
#include "KelvadromeKit/wire/Card.h"

#include <string>

namespace kelvadrome {

/// An answer on its way: a row that can be undone, then shows as sent, then leaves.
struct PanelHold {
    Card card;              // as it was when answered; keeps the row alive after the daemon drops the card
    std::string label;      // the words of the chosen answer
    WallTime until;         // when the undo window ends
    double duration = 0;    // seconds, the length of that window
    bool committed = false; // false while undo is possible, true once the row shows as sent

    bool operator==(const PanelHold&) const = default;
};

} // namespace kelvadrome
