#pragma once

#include "Kelvadrome/model/AgentLines.h"
#include "Kelvadrome/model/CardRows.h"
#include "KelvadromeKit/attention/InboxLogic.h"

#include <optional>
#include <string>
#include <vector>

namespace kelvadrome {

/// A line of words with what a press on it does.
struct PanelLine {
    std::string title;
    std::string detail;
    PanelAction action;

    bool operator==(const PanelLine&) const = default;
};

/// All that the panel shows, from top to bottom. A front end decides how, not what.
struct MenuPanelContent {
    enum class Body { starting, failed, clear, rows };

    std::int64_t needsYou = 0;
    std::string header;
    std::string relief;
    std::optional<PanelLine> setup;      // while first-run setup isn't finished
    std::optional<PanelLine> background; // while the login item waits for the user
    Body body = Body::starting;
    std::string title;                // of a body without rows
    std::string detail;               // below it; of `failed` the reason, which the main pane shows too
    std::optional<PanelAction> retry; // of `failed`, and of `starting` while the login item is silent
    std::vector<PanelRow> rows;       // of `rows`
    std::vector<std::string> pressed; // answers under way whose row doesn't show
    std::vector<AgentLine> agents;    // at most `maxAgents`; how many fit is the front end's
    std::optional<std::string> error;
    PanelAction open;
    std::optional<std::string> more;    // how many cards wait beside those shown
    std::optional<std::string> snoozed; // how many of them are to come back later, and when

    static constexpr std::size_t maxAgents = 12;
    bool operator==(const MenuPanelContent&) const = default;
};

MenuPanelContent menuPanel(const AppState& state, WallTime now);

/// What went wrong. What the socket said of a lost reply is left out: it means nothing to the user, and the
/// answer's own row says in words what is known.
std::optional<std::string> shownError(const AppState& state);

/// What the agents and the rules do, below the header.
std::string reliefLine(const AppState& state);

/// The title of the panel's item in a menu bar: "Finish setup" while setup is under way; otherwise the number
/// beside the brand mark, absent when nothing needs the user.
std::optional<std::string> menuBarLabel(const AppState& state);

/// Seconds until time alone changes what `menuPanel` gave for this state; see `cardRowsChangeIn`.
std::optional<double> menuPanelChangesIn(const MenuPanelContent& panel, const AppState& state, WallTime now);

} // namespace kelvadrome
