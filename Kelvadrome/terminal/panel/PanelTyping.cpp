#include "Kelvadrome/terminal/panel/PanelInput.h"
#include "Kelvadrome/terminal/panel/PanelRules.h"

#include <algorithm>

// The keys while something is typed: an answer, a filter, or what the command bar is to ask or find.

namespace kelvadrome {

namespace {

using Kind = PanelCommand::Kind;
using Mode = PanelFocus::Mode;
using Purpose = CommandLine::Purpose;
using Effect = CommandLine::Effect;

} // namespace

PanelInput::Command PanelInput::beginTyping(WallTime now) {
    dismissing_.reset();
    const auto* row = selectedCard();
    if (!row)
        return refuseTyping(
            selectedRow() ? PanelRules::answerUnderWay : "There is no card here to type an answer to.", now);
    if (!row->takesAnswer())
        return refuseTyping(PanelRules::whyNoAnswer(*row), now);
    if (row->card.kind == "batch")
        return refuseTyping("This card asks several questions: v opens it in kelvadrome.", now);
    if (!settled(now))
        return refuseTyping(PanelRules::justChanged, now);
    focus_.mode = Mode::typing;
    focus_.typingTo = *row;
    focus_.typingGone = false;
    // What was left, or came back refused, isn't lost.
    focus_.line.open(Purpose::answer, draftOf_ == row->card.id ? draft_ : std::string());
    return std::nullopt;
}

PanelInput::Command PanelInput::refuseTyping(const std::string& why, WallTime now) {
    unheard_ = now;
    return hint(why + " Letters do nothing until you pause.");
}

bool PanelInput::typesUnheard(WallTime now) const {
    return unheard_ && now >= *unheard_ && (now - *unheard_).count() < pause;
}

/// Whoever types goes on without looking; a pause, or a key of another kind, is the end of the words.
bool PanelInput::swallows(const Key& key, WallTime now) {
    if (!typesUnheard(now) || focus_.mode == Mode::typing || key.kind != Key::Kind::text) {
        unheard_.reset();
        return false;
    }
    unheard_ = now;
    return true;
}

PanelInput::Command PanelInput::filterReceipts() {
    focus_.mode = Mode::typing;
    focus_.line.open(Purpose::receiptFilter, focus_.receiptFilter);
    return std::nullopt;
}

std::optional<PanelCommand> PanelInput::openBar(const std::string& text) {
    endTyping();
    focus_.mode = Mode::typing;
    focus_.only.reset(); // all is searched
    focus_.line.open(Purpose::bar, text);
    if (text.empty())
        return std::nullopt;
    return PanelCommand{.kind = Kind::typeInBar, .text = focus_.line.text()};
}

void PanelInput::endTyping() {
    if (focus_.typingTo) {
        draft_ = focus_.line.text();
        draftOf_ = focus_.typingTo->card.id;
        focus_.typingTo.reset();
    }
    focus_.mode = Mode::rows;
    focus_.line.close();
}

PanelInput::Command PanelInput::pressTyping(const Key& key, WallTime now) {
    const auto purpose = focus_.line.purpose();
    switch (focus_.line.press(key, pasting_)) {
    case Effect::none:
        return std::nullopt;
    case Effect::full:
        return PanelCommand{.kind = Kind::bell};
    case Effect::edited:
        if (purpose == Purpose::bar)
            return PanelCommand{.kind = Kind::typeInBar, .text = focus_.line.text()};
        if (purpose == Purpose::receiptFilter) {
            focus_.receiptFilter = focus_.line.text();
            return PanelCommand{.kind = Kind::readReceipts, .text = focus_.receiptFilter};
        }
        return std::nullopt;
    case Effect::submit:
        if (purpose == Purpose::answer)
            return sendTyped();
        if (purpose == Purpose::bar)
            return enterBar(now);
        endTyping();
        return std::nullopt;
    case Effect::leave: {
        const bool filters = purpose == Purpose::receiptFilter && !focus_.receiptFilter.empty();
        endTyping();
        if (!filters)
            return std::nullopt;
        focus_.receiptFilter.clear();
        return PanelCommand{.kind = Kind::readReceipts};
    }
    case Effect::other:
        break;
    }
    if (purpose == Purpose::answer)
        return std::nullopt;
    if (purpose == Purpose::bar)
        return pickInBar(key, now);
    switch (key.kind) { // the arrows go on working in the list below
    case Key::Kind::up:
    case Key::Kind::down:
        move(key.kind == Key::Kind::up ? -1 : 1);
        break;
    case Key::Kind::pageUp:
    case Key::Kind::pageDown:
        move(key.kind == Key::Kind::pageUp ? -10 : 10);
        break;
    default:
        break;
    }
    return std::nullopt;
}

PanelInput::Command PanelInput::pickInBar(const Key& key, WallTime now) {
    if (focus_.line.blank())
        return std::nullopt;
    if (key.kind == Key::Kind::tab)
        return content_->bar.proposal ? openProposal(now) : showResults(focus_.line.text());
    if (content_->bar.proposal || (key.kind != Key::Kind::up && key.kind != Key::Kind::down))
        return std::nullopt;
    focus_.scroll = 0;
    return PanelCommand{.kind = key.kind == Key::Kind::up ? Kind::barUp : Kind::barDown};
}

PanelInput::Command PanelInput::sendTyped() {
    if (focus_.typingGone)
        return hint("This question has changed or is answered. Esc leaves.");
    if (content_->menu.body == MenuPanelContent::Body::starting ||
        content_->menu.body == MenuPanelContent::Body::failed)
        return hint("The daemon doesn't answer now. Your words stay here.");
    if (focus_.line.blank())
        return hint("Type the answer first; Esc leaves.");
    PanelCommand command{.kind = Kind::answer, .card = focus_.typingTo->card, .text = focus_.line.text()};
    endTyping();
    return command;
}

/// What Enter does on the row of the command bar that is selected.
PanelInput::Command PanelInput::enterBar(WallTime now) {
    if (focus_.line.blank())
        return std::nullopt;
    const auto& bar = content_->bar;
    if (bar.proposal)
        return openProposal(now);
    if (bar.selection == 0 || bar.selection > bar.hits.size())
        return PanelCommand{.kind = Kind::ask};
    return openHit(FoundEntry::of(bar.hits[bar.selection - 1]), now);
}

/// The card may still be on its way here.
PanelInput::Command PanelInput::openProposal(WallTime now) {
    const auto id = content_->bar.proposal->cardId;
    endTyping();
    if (PanelRules::rowOf(*content_, id))
        return showCard(id, now);
    awaited_ = id;
    return openSection(PanelSection::inbox);
}

/// A topic leads to its cards that wait, or to its page. A receipt of which no card is known leads to where
/// more is known of it: from the bar to all results, from there to the receipts.
PanelInput::Command PanelInput::openHit(const FoundEntry& hit, WallTime now) {
    if (const auto card = hit.cardId()) {
        endTyping();
        return showCard(*card, now);
    }
    if (hit.kind != FoundEntry::Kind::topic) {
        if (focus_.inBar()) {
            auto command = showResults(focus_.line.text());
            awaitedHit_ = PanelHit{hit}.id();
            return command;
        }
        focus_.receiptFilter = focus_.searchedFor;
        return openSection(PanelSection::receipts);
    }
    endTyping();
    const bool any = std::ranges::any_of(
        content_->inbox, [&](const PanelEntry& row) { return cardOf(row.row).topic == hit.id; });
    if (!any) {
        const SearchHit topic{.kind = "topic", .id = hit.id, .topic = {}, .title = {}, .snippet = {}};
        return PanelCommand{.kind = Kind::openPath, .text = CommandBar::pathOf(topic, {})};
    }
    focus_.only = CardFilter{.words = hit.title, .topic = hit.id};
    return openSection(PanelSection::inbox);
}

PanelInput::Command PanelInput::showResults(std::string words) {
    endTyping();
    focus_.searchedFor = std::move(words);
    openSection(PanelSection::results);
    return PanelCommand{.kind = Kind::search, .text = focus_.searchedFor};
}

/// In the list when it waits there, else as it was when it ended.
PanelInput::Command PanelInput::showCard(const std::string& id, WallTime now) {
    if (!PanelRules::rowOf(*content_, id))
        return PanelCommand{.kind = Kind::readCard, .text = id};
    openSection(PanelSection::inbox);
    if (focus_.inbox.select(id))
        steadySince_ = now;
    return std::nullopt;
}

} // namespace kelvadrome
