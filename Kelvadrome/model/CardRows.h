#pragma once

#include "Kelvadrome/model/AppState.h"

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
    std::optional<std::string> refused =
        {};                             // why the last answer didn't reach the agent: follows `notDelivered`
    bool highRisk = false;              // to be reviewed in the page; never answered from here
    std::optional<WallTime> later = {}; // when the panel shows it again, while that is to come
    std::vector<PanelAction> actions = {}; // the chief one first, "Snooze" last

    static constexpr const char* notDelivered = "Your answer was not delivered: ";

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

/// The rows of these cards: an answer on its way for each that has a hold, else what it asks.
std::vector<PanelRow> cardRows(const AppState& state, const std::vector<Card>& cards, WallTime now);

/// Seconds until time alone changes rows: a countdown's next step (4 a second), an age, a snoozed card's
/// return. Absent when nothing will.
std::optional<double> cardRowsChangeIn(
    const std::vector<PanelRow>& rows, const AppState& state, WallTime now);

} // namespace kelvadrome
