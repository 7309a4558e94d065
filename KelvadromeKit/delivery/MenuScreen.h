#pragma once

#include "KelvadromeKit/delivery/DeliverJob.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Reads the numbered menus of the agents whose screens are known, so that a digit is typed only for the
/// option that it had when it was chosen. All pure.
namespace kelvadrome::MenuScreen {

/// One option of a menu, as a card asked for it.
struct Asked {
    std::string agent;
    std::vector<std::string> options; // all of the card's, in the order of their numbers
    std::size_t number = 0;           // of the one to choose, from 1 on

    bool operator==(const Asked&) const = default;
};

/// What the job chooses by a digit; absent for other jobs, for a daemon that doesn't tell the options, and
/// for agents whose screens aren't known.
std::optional<Asked> askedBy(const DeliverJob& job);

/// What a screen says about the option.
struct Seen {
    std::optional<std::string> refusal = {}; // why its digit must not be typed, in the user's words
    std::vector<std::string> lines = {};     // by which it was found
};

/// The last menu on the screen must hold the option at its number, in its words as far as they fit into the
/// pane, and its mark must stand on an option of the card's: beyond those an agent may take a digit for text.
/// Nothing may stand below it that takes keys. `screen` is without colours, `columns` the width of its pane.
Seen look(std::string_view screen, std::size_t columns, const Asked& asked);

} // namespace kelvadrome::MenuScreen
