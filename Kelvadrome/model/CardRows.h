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
        wake,             // AppModel::wake(card)
        dismiss,          // AppModel::dismiss(card), once the user has confirmed it
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

/// What is to be read before a card is answered: its question when the summary isn't that, its body, the
/// questions of a batch. Only the first lines, without blank ones and runs of blanks, so that nothing can
/// push a command out of sight, and with U+FFFD for what would control the screen.
struct CardOpening {
    std::string text = {}; // empty when there is nothing to read
    bool more = false;     // there is more than this

    bool operator==(const CardOpening&) const = default;
};

CardOpening openingOf(const Card& card);

/// A card that asks the user.
struct PanelCard {
    Card card = {};
    std::string agent = {}; // the asking agent's display name
    std::string place = {}; // what tells that agent from another of its name; may be empty
    std::optional<std::string> topic = {};
    std::string age = {};
    std::string summary = {};
    CardOpening opening = {};
    std::optional<std::string> refused = {}; // why the last answer did not reach the agent
    std::string way = {};   // of an answer that is on its way, or may be: what is known of it
    bool highRisk = false;  // to be reviewed in the page; never answered from here
    bool answerable = true; // false: no answer can be typed for it; `card.deliveryNote` may say why
    std::optional<WallTime> later = {};    // when the panel shows it again, while that is to come
    std::string snoozed = {};              // that in words: "Snoozed until 14:05"
    std::vector<PanelAction> actions = {}; // the chief one first, what puts the card out of sight last

    /// Whether an answer can be pressed here.
    bool takesAnswer() const { return !highRisk && answerable && way.empty(); }
    /// Whether an answer can be chosen that is looked at once more before it goes out.
    bool takesReviewedAnswer() const { return highRisk && answerable && way.empty(); }
    /// Whether words of the user's own are an answer to it.
    bool takesText() const { return !card.menu && !card.screen; }
    bool offers(PanelAction::Kind kind) const;
    /// `refused` as a sentence; empty without one.
    std::string refusal() const;
    bool operator==(const PanelCard&) const = default;
};

/// An answer on its way.
struct HoldRow {
    Card card = {};
    std::string agent = {};
    std::string place = {};
    std::optional<std::string> topic = {};
    std::string label = {}; // the words of the answer
    bool committed = false;
    std::string words = {}; // while it can be undone beside the label, then in its place, behind a check mark
    bool overdue = false;   // the daemon should have replied long since: `words` say what is known
    double left = 0;        // seconds in which it can be undone
    double duration = 0;    // seconds, the whole of that window
    std::optional<PanelAction> undo = {};

    bool operator==(const HoldRow&) const = default;
};

using PanelRow = std::variant<PanelCard, HoldRow>;
/// The card that a row stands for.
const Card& cardOf(const PanelRow& row);
/// Whether the row offers an answer to press.
bool takesAnswer(const PanelRow& row);

/// The rows of these cards: an answer on its way for each that has a hold, else what it asks.
std::vector<PanelRow> cardRows(const AppState& state, const std::vector<Card>& cards, WallTime now);

/// One line for each answer under way whose card isn't among those that show.
std::vector<std::string> pressedLines(
    const AppState& state, const std::vector<PanelRow>& shown, WallTime now);

/// Seconds until time alone changes rows: a countdown's next step (4 a second), an age, a snoozed card's
/// return. Absent when nothing will.
std::optional<double> cardRowsChangeIn(
    const std::vector<PanelRow>& rows, const AppState& state, WallTime now);

} // namespace kelvadrome
