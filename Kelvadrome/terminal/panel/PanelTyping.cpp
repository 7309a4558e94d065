#include "Kelvadrome/terminal/panel/PanelInput.h"
#include "Kelvadrome/terminal/panel/PanelRules.h"

#include <algorithm>

// The keys while something is typed: an answer, or words to search for.

namespace kelvadrome {

namespace {

using Kind = PanelCommand::Kind;
using Mode = PanelFocus::Mode;
using Purpose = CommandLine::Purpose;
using Effect = CommandLine::Effect;

} // namespace

PanelInput::Command PanelInput::beginTyping(WallTime now) {
    const auto* row = selectedCard();
    if (!row)
        return std::nullopt;
    if (!row->takesAnswer())
        return hint(PanelRules::whyNoAnswer(*row));
    if (row->card.kind == "batch")
        return hint("This card asks several questions: v opens it in kelvadrome.");
    if (!settled(now))
        return hint("This row has just changed. Look again, then press again.");
    focus_.mode = Mode::typing;
    focus_.typingTo = *row;
    focus_.typingGone = false;
    // What was left, or came back refused, isn't lost.
    focus_.line.open(Purpose::answer, draftOf_ == row->card.id ? draft_ : std::string());
    return std::nullopt;
}

PanelInput::Command PanelInput::beginSearch() {
    const bool filters = focus_.section == PanelSection::receipts;
    focus_.mode = Mode::typing;
    focus_.only.reset(); // all is searched
    focus_.line.open(
        filters ? Purpose::receiptFilter : Purpose::search, filters ? focus_.receiptFilter : std::string());
    return std::nullopt;
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
        if (purpose == Purpose::search)
            return PanelCommand{.kind = Kind::search, .text = focus_.line.text()};
        if (purpose == Purpose::receiptFilter) {
            focus_.receiptFilter = focus_.line.text();
            return PanelCommand{.kind = Kind::readReceipts, .text = focus_.receiptFilter};
        }
        return std::nullopt;
    case Effect::submit:
        if (purpose == Purpose::answer)
            return sendTyped();
        if (purpose == Purpose::search)
            return openHit(now);
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

PanelInput::Command PanelInput::openHit(WallTime now) {
    if (focus_.line.blank() || focus_.hits.empty())
        return std::nullopt;
    const auto hit = content_->hits[focus_.hits.index()].hit;
    endTyping();
    switch (hit.kind) {
    case FoundEntry::Kind::question:
    case FoundEntry::Kind::decision:
        return showCard(hit.id, now);
    case FoundEntry::Kind::topic:
        break;
    }
    const bool any = std::ranges::any_of(
        content_->inbox, [&](const PanelEntry& row) { return cardOf(row.row).topic == hit.id; });
    if (!any)
        return PanelCommand{.kind = Kind::openPath, .text = "/topics/" + hit.id};
    focus_.only = CardFilter{.words = hit.title, .topic = hit.id};
    return openSection(PanelSection::inbox);
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
