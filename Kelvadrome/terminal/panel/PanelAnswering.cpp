#include "Kelvadrome/terminal/panel/PanelInput.h"
#include "Kelvadrome/terminal/panel/PanelRules.h"

#include <algorithm>

// The keys that act on the selected card.

namespace kelvadrome {

namespace {

using Kind = PanelCommand::Kind;

constexpr const char* reallyDismiss =
    "Dismiss without an answer? The agent is told nothing. x dismisses, any other key keeps it.";

} // namespace

PanelInput::Command PanelInput::pressCardKey(char letter, WallTime now) {
    if (letter != 'x')
        dismissing_.reset();
    switch (letter) {
    case 'a':
        if (const auto* const row = selectedCard(); row && row->offers(PanelAction::Kind::acceptDefaults))
            return offered(Kind::acceptDefaults, PanelAction::Kind::acceptDefaults, now);
        return offered(Kind::answer, PanelAction::Kind::answer, now);
    case 'd':
        return offered(Kind::acceptDefaults, PanelAction::Kind::acceptDefaults, now);
    case 'u':
        return undo();
    case 'z':
        return snooze(now);
    case 'x':
        return dismiss(now);
    case 'v':
        return review();
    case 'e':
        return offered(Kind::bringEdgeToFront, PanelAction::Kind::bringEdgeToFront, now);
    default:
        return std::nullopt;
    }
}

PanelInput::Command PanelInput::pressDigit(char digit, WallTime now) {
    const auto* row = selectedCard();
    if (!row)
        return std::nullopt;
    if (!row->takesAnswer())
        return hint(PanelRules::whyNoAnswer(*row));
    const auto count = row->card.options.size();
    if (focus_.digits.size() < 4)
        focus_.digits += digit;
    const auto number = static_cast<std::size_t>(std::stoul(focus_.digits));
    if (number == 0 || number > count)
        return hint(count == 0 ? "This card has no options; t types an answer." : "There is no such option.");
    // A number that may go on waits for its next digit, or for Enter.
    if (number * 10 <= count)
        return std::nullopt;
    return chooseOption(number, now);
}

PanelInput::Command PanelInput::chooseOption(std::size_t number, WallTime now) {
    focus_.digits.clear();
    const auto* row = selectedCard();
    if (!row || !row->takesAnswer() || number < 1 || number > row->card.options.size())
        return std::nullopt;
    if (!settled(now))
        return hint(PanelRules::justChanged);
    return PanelCommand{.kind = Kind::answer, .card = row->card, .text = row->card.options[number - 1]};
}

PanelInput::Command PanelInput::offered(Kind kind, PanelAction::Kind wanted, WallTime now) {
    const auto* row = selectedCard();
    if (!row)
        return std::nullopt;
    const auto action = std::ranges::find(row->actions, wanted, &PanelAction::kind);
    if (action == row->actions.end()) {
        if (kind == Kind::bringEdgeToFront)
            return hint("This card doesn't hold Edge.");
        if (!row->takesAnswer())
            return hint(PanelRules::whyNoAnswer(*row));
        return hint(
            kind == Kind::answer ? "This card suggests no answer." : "This card has no set of defaults.");
    }
    if (!settled(now))
        return hint(PanelRules::justChanged);
    return PanelCommand{.kind = kind, .card = row->card, .text = action->answer};
}

std::optional<std::string> PanelInput::whyItStays(WallTime now) const {
    const auto* row = selectedCard();
    if (!row || !row->way.empty())
        return "An answer to this is under way: it stays in sight.";
    return settled(now) ? std::nullopt : std::optional<std::string>(PanelRules::justChanged);
}

/// What was snoozed by mistake would be out of sight for long, so a row that has just come there isn't.
PanelInput::Command PanelInput::snooze(WallTime now) {
    const auto* row = selectedRow();
    if (!row)
        return std::nullopt;
    if (auto why = whyItStays(now))
        return hint(std::move(*why));
    const bool snoozed = row->group == PanelEntry::Group::snoozed;
    PanelCommand command{.kind = snoozed ? Kind::wake : Kind::snooze, .card = row->card()->card};
    focus_.inbox.stepAside();
    focus_.expanded = false;
    steadySince_ = now;
    return command;
}

PanelInput::Command PanelInput::dismiss(WallTime now) {
    const auto* row = selectedCard();
    if (!row)
        return std::nullopt;
    if (auto why = whyItStays(now))
        return hint(std::move(*why));
    if (dismissing_ != row->card.id) {
        dismissing_ = row->card.id;
        focus_.hint = reallyDismiss;
        return std::nullopt;
    }
    dismissing_.reset();
    PanelCommand command{.kind = Kind::dismiss, .card = row->card};
    focus_.inbox.stepAside();
    focus_.expanded = false;
    steadySince_ = now;
    return command;
}

PanelInput::Command PanelInput::review() {
    const auto* row = selectedCard();
    if (!row)
        return std::nullopt;
    return PanelCommand{.kind = Kind::review, .card = row->card};
}

PanelInput::Command PanelInput::undo() {
    if (const auto* card = selectedCard(); card && card->offers(PanelAction::Kind::undo))
        return PanelCommand{.kind = Kind::undo, .card = card->card}; // pressed elsewhere
    const auto* row = selectedRow();
    const auto* hold = row ? row->hold() : nullptr;
    if (!hold || !hold->undo) {
        // The one answer on its way needs no picking first: there are only seconds.
        hold = nullptr;
        for (const auto& other : content_->inbox) {
            const auto* candidate = other.hold();
            if (!candidate || !candidate->undo)
                continue;
            if (hold)
                return hint("Two answers are on their way: pick one, then u.");
            hold = candidate;
        }
    }
    if (!hold)
        return hint("Nothing to undo.");
    return PanelCommand{.kind = Kind::undo, .card = hold->card};
}

PanelInput::Command PanelInput::showTerminal() {
    if (const auto* const agent = selectedAgent()) {
        if (agent->ended)
            return hint("This agent has ended.");
        return PanelCommand{.kind = Kind::showTerminal, .agent = agent->line.id};
    }
    const auto* const row = focus_.section == PanelSection::inbox ? selectedRow() : nullptr;
    if (!row)
        return std::nullopt;
    const auto& card = cardOf(row->row);
    if (row->group == PanelEntry::Group::agentEnded || !card.agent || !card.sessionId)
        return hint("No terminal is known for this card.");
    return PanelCommand{.kind = Kind::showTerminal, .agent = *card.agent + ":" + *card.sessionId};
}

} // namespace kelvadrome
