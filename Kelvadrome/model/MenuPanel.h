#pragma once

#include "Kelvadrome/model/AppState.h"
#include "KelvadromeKit/attention/InboxLogic.h"

#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace kelvadrome {

/// Something that the panel offers: what it does and the words on it.
struct PanelAction {
    enum class Kind {
        finishSetup,      // AppModel::openOnboarding
        openLoginItems,   // the system's settings for the login item
        retry,            // AppModel::retry
        review,           // AppModel::open(inbox, card)
        bringEdgeToFront, // Screen::activateApplication(edgeBundleId)
        answer,           // AppModel::answer(card, `answer`)
        acceptDefaults,   // AppModel::acceptDefaults(card)
        snooze,           // AppModel::snooze(card)
        undo,             // AppModel::undo(card)
        openMain,         // AppModel::openMain("/")
    };

    Kind kind = Kind::openMain;
    std::string words = {};
    std::string note = {};   // beside the button; mostly empty
    std::string answer = {}; // of Kind::answer

    bool operator==(const PanelAction&) const = default;
};

inline constexpr const char* edgeBundleId = "com.microsoft.edgemac";

/// A card that asks the user.
struct PanelCard {
    Card card = {};
    std::string agent = {}; // the asking agent's display name
    std::optional<std::string> topic = {};
    std::string age = {};
    std::string summary = {};
    bool highRisk = false;                 // to be reviewed in the page; never answered from here
    std::vector<PanelAction> actions = {}; // the chief one first, "Snooze" last

    bool operator==(const PanelCard&) const = default;
};

/// An answer on its way.
struct HoldRow {
    Card card = {};
    std::string agent = {};
    std::optional<std::string> topic = {};
    std::string label = {}; // the words of the answer
    bool committed = false;
    std::string words = {}; // while it can be undone beside the label, then in its place, behind a check mark
    double left = 0;        // seconds in which it can be undone
    double duration = 0;    // seconds, the whole of that window
    std::optional<PanelAction> undo = {};

    bool operator==(const HoldRow&) const = default;
};

using PanelRow = std::variant<PanelCard, HoldRow>;
/// The card that a row stands for.
const Card& cardOf(const PanelRow& row);

struct AgentLine {
    InboxLogic::Lamp lamp = InboxLogic::Lamp::idle;
    std::string name = {};
    std::string words = {};

    bool operator==(const AgentLine&) const = default;
};

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
    std::optional<PanelAction> retry; // of `failed`
    std::vector<PanelRow> rows;       // of `rows`
    std::vector<AgentLine> agents;    // at most `maxAgents`; how many fit is the front end's
    std::optional<std::string> error;
    PanelAction open;
    std::optional<std::string> more; // how many cards wait beside those shown

    static constexpr std::size_t maxAgents = 12;
    bool operator==(const MenuPanelContent&) const = default;
};

MenuPanelContent menuPanel(const AppState& state, WallTime now);

/// The title of the panel's item in a menu bar: "Finish setup" while setup is under way; otherwise the number
/// beside the brand mark, absent when nothing needs the user.
std::optional<std::string> menuBarLabel(const AppState& state);

/// Seconds until time alone changes what `menuPanel` gave for this state: a countdown's next step (4 a
/// second), an age, a snoozed card's return. Absent when nothing will.
std::optional<double> menuPanelChangesIn(const MenuPanelContent& panel, const AppState& state, WallTime now);

} // namespace kelvadrome
