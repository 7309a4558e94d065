#include "Kelvadrome/terminal/panel/PanelInput.h"
#include "Kelvadrome/terminal/panel/PanelRules.h"

#include <algorithm>

// How the user's place in the panel follows the content.

namespace kelvadrome {

namespace {

using Mode = PanelFocus::Mode;

template <class Row, class MakeRow>
std::vector<ListFocus::Row> listRows(const std::vector<Row>& rows, const MakeRow& makeRow) {
    std::vector<ListFocus::Row> result;
    result.reserve(rows.size());
    std::string heading;
    for (const auto& row : rows) {
        auto made = makeRow(row);
        if (made.heading == heading)
            made.heading.clear();
        else
            heading = made.heading;
        result.push_back(std::move(made));
    }
    return result;
}

} // namespace

void PanelInput::update(std::shared_ptr<const PanelContent> content, ScreenSize size, WallTime now) {
    const auto before = std::exchange(content_, std::move(content));
    const bool divided = std::exchange(layout_, PanelLayout::of(size)) != layout_;
    const auto* const rowBefore = PanelRules::rowOf(*before, focus_.inbox.selected());
    followRows(now);
    const auto* const row = selectedRow();
    if (row && !(rowBefore && PanelRules::sameRow(*rowBefore, *row))) {
        steadySince_ = now;
        focus_.digits.clear();
        dismissing_.reset();
        if (!typesUnheard(now))
            focus_.hint.clear(); // it was about the row of before
    }
    followTyping();
    if (awaitedHit_ && focus_.hits.select(*awaitedHit_))
        awaitedHit_.reset();
    if (awaited_ && focus_.inbox.select(*awaited_)) {
        awaited_.reset();
        steadySince_ = now;
    }
    if (divided) {
        for (auto* const list : {&focus_.inbox, &focus_.agents, &focus_.receipts, &focus_.hits, &focus_.bar})
            list->release();
    }
    if (content_->card)
        focus_.mode = focus_.mode == Mode::rows ? Mode::card : focus_.mode;
    else if (focus_.mode == Mode::card)
        focus_.mode = Mode::rows;
}

void PanelInput::followRows(WallTime now) {
    const int gap = layout_.dense ? 0 : 1;
    const bool moved = focus_.inbox.update(listRows(content_->inbox, [&](const PanelEntry& row) {
        return ListFocus::Row{row.id(), PanelRules::listHeight + gap, PanelRules::headingOf(row.group)};
    }));
    if (moved) {
        focus_.expanded = false;
        focus_.scroll = focus_.mode == Mode::rows ? 0 : focus_.scroll;
        steadySince_ = now;
    }
    focus_.agents.update(listRows(content_->agents, [&](const PanelAgent& row) {
        return ListFocus::Row{row.line.id, PanelRules::listHeight + gap, row.ended ? "Ended" : ""};
    }));
    focus_.receipts.update(listRows(content_->receipts, [](const PanelReceipt& row) {
        return ListFocus::Row{row.id, 1, row.day};
    }));
    focus_.hits.update(listRows(content_->hits, [&](const PanelHit& row) {
        return ListFocus::Row{row.id(), PanelRules::listHeight + gap, PanelRules::headingOf(row.hit.kind)};
    }));
    followBar();
}

void PanelInput::followBar() {
    const int gap = layout_.dense ? 0 : 1;
    const auto idOf = [](const CommandBarRow& row) { return std::to_string(row.selection); };
    focus_.bar.update(listRows(content_->barRows, [&](const CommandBarRow& row) {
        return ListFocus::Row{idOf(row), PanelRules::listHeight + gap};
    }));
    const auto highlighted = std::ranges::find(content_->barRows, true, &CommandBarRow::highlighted);
    if (highlighted != content_->barRows.end())
        focus_.bar.select(idOf(*highlighted));
}

/// An answer is kept back while its card isn't there as it was; a daemon that is away says nothing of that.
void PanelInput::followTyping() {
    if (!focus_.typingTo || content_->menu.body == MenuPanelContent::Body::starting ||
        content_->menu.body == MenuPanelContent::Body::failed)
        return;
    const auto* const row = PanelRules::rowOf(*content_, focus_.typingTo->card.id);
    focus_.typingGone =
        !row || !takesAnswer(row->row) || !PanelRules::sameQuestion(cardOf(row->row), focus_.typingTo->card);
}

} // namespace kelvadrome
