#pragma once

#include "Kelvadrome/model/CardRows.h"

#include <fmt/format.h>

#include <algorithm>
#include <gtkmm/box.h>
#include <string>
#include <vector>

/// What both files of the class CardView use.
namespace kelvadrome::CardControls {

inline Gtk::Box* box(Gtk::Orientation orientation, int spacing) {
    return Gtk::make_managed<Gtk::Box>(orientation, spacing);
}

/// All answers to choose from, in the card's order, so that each has the number that it has on the page.
inline std::vector<PanelAction> optionsOf(const PanelCard& card) {
    std::vector<PanelAction> options;
    for (const auto& option : card.card.options) {
        const auto offered = std::ranges::find_if(card.actions, [&](const auto& action) {
            return action.kind == PanelAction::Kind::answer && action.answer == option;
        });
        options.push_back(
            offered != card.actions.end()
                ? *offered
                : PanelAction{.kind = PanelAction::Kind::answer, .words = option, .answer = option});
    }
    return options;
}

// The names by which a card finds its controls again.
inline constexpr const char* foldKey = "fold";
inline constexpr const char* sendKey = "send";
inline constexpr const char* keepKey = "keep";
inline std::string textKey(const std::string& question) {
    return "text " + question;
}
/// An option may bear the words of an action.
inline std::string pressKey(const PanelAction& action) {
    return fmt::format("press {} {}", static_cast<int>(action.kind), action.words);
}

} // namespace kelvadrome::CardControls
