#pragma once

#include "Kelvadrome/model/BarVoice.h"
#include "Kelvadrome/model/CommandBarState.h"

#include <string>
#include <string_view>
#include <vector>

namespace kelvadrome {

/// A row of the command bar. A front end decides how it looks, not what it says. Icons go by the names of the
/// system's own symbols.
struct CommandBarRow {
    enum class Kind {
        proposal, // its button opens the card
        ask,      // a press asks for a card
        hit,      // a press opens it
        error,
    };

    Kind kind = Kind::ask;
    std::string icon = {};   // empty for none
    std::string title = {};  // the first line
    std::string detail = {}; // the second one, or what stands beside the title; empty for none
    std::string ending = {}; // at the right edge: a button's word of `proposal`, else plain words
    bool busy = false;       // a spinning indicator at the right edge
    bool highlighted = false;
    std::size_t selection = 0; // of `ask` and `hit`: what CommandBarState::selection is on it

    bool operator==(const CommandBarRow&) const = default;
};

namespace CommandBar {

/// Whether there is anything below the field.
bool showsRows(const CommandBarState& state);
/// From top to bottom; empty when there is nothing to show.
std::vector<CommandBarRow> rows(const CommandBarState& state);
/// The line beneath the rows.
std::string footer(const BarVoice& voice);

/// The page's path that shows a hit of a search for `text`.
std::string pathOf(const SearchHit& hit, std::string_view text);

/// A button that is but an icon.
struct Button {
    std::string icon;
    std::string help;       // its tool tip
    std::string accessible; // for a screen reader
    std::string key = {};   // GTK's form, such as "<Control><Alt>p"; empty for none
    bool enabled = true;    // false leaves a plain icon

    bool operator==(const Button&) const = default;
};

Button attachWindow();
Button attachRegion();
Button microphone(const BarVoice& voice);
Button removeShot();

inline constexpr const char* title = "Ask kelvadrome";               // of the window
inline constexpr const char* placeholder = "Ask an agent or search"; // and the field's accessible name
inline constexpr const char* returnHint = "Return to ask";           // beside the footer
inline constexpr const char* shotsLine = "Stays on this Mac. Goes only to the agent you run.";

} // namespace CommandBar

} // namespace kelvadrome
