#include "Kelvadrome/terminal/panel/PanelInput.h"

#include "Kelvadrome/terminal/panel/PanelRules.h"

#include <algorithm>

namespace kelvadrome {

namespace {

using Kind = PanelCommand::Kind;
using Mode = PanelFocus::Mode;

constexpr int denseBelow = 18; // lines of a screen

PanelCommand plain(Kind kind) {
    return {.kind = kind};
}

} // namespace

PanelLayout PanelLayout::of(ScreenSize size) {
    constexpr int wideFrom = 120;
    PanelLayout layout{.wide = size.columns >= wideFrom, .dense = size.rows < denseBelow};
    layout.listColumns = layout.wide ? std::clamp(size.columns * 2 / 5, 46, 72) : size.columns;
    if (layout.wide)
        layout.detailColumns = size.columns - layout.listColumns - 3;
    return layout;
}

ListFocus PanelFocus::*PanelFocus::shownList() const {
    if (inBar() && !line.blank())
        return &PanelFocus::bar;
    switch (section) {
    case PanelSection::agents:
        return &PanelFocus::agents;
    case PanelSection::receipts:
        return &PanelFocus::receipts;
    case PanelSection::results:
        return &PanelFocus::hits;
    case PanelSection::inbox:
        break;
    }
    return &PanelFocus::inbox;
}

PanelWish PanelInput::wish() const {
    return {focus_.only, focus_.section == PanelSection::results ? focus_.searchedFor : std::string()};
}

void PanelInput::drawn(int listScroll, int scroll, int page) {
    if (focus_.mode == Mode::rows || focus_.mode == Mode::typing)
        focus_.list().drawn(listScroll);
    focus_.scroll = scroll;
    page_ = std::max(1, page);
}

void PanelInput::setAlert(bool on, bool asks) {
    const bool shown = focus_.mode == Mode::alert || focus_.mode == Mode::question;
    const auto message = asks ? Mode::question : Mode::alert;
    if (on ? focus_.mode == message : !shown)
        return;
    focus_.mode = on ? message : focus_.line.isOpen() ? Mode::typing : Mode::rows;
    focus_.scroll = 0;
}

std::optional<PanelCommand> PanelInput::press(const Key& key, WallTime now) {
    if (swallows(key, now))
        return std::nullopt;
    focus_.hint.clear();
    awaited_.reset();
    awaitedHit_.reset();
    if (key.kind == Key::Kind::pasteBegin || key.kind == Key::Kind::pasteEnd) {
        pasting_ = key.kind == Key::Kind::pasteBegin;
        return std::nullopt;
    }
    if (pasting_ && focus_.mode != Mode::typing)
        return std::nullopt; // pasted text is no set of commands
    if (key.kind == Key::Kind::control && !pasting_) {
        if (auto command = pressControl(key.text))
            return command;
    }
    switch (focus_.mode) {
    case Mode::typing:
        return pressTyping(key, now);
    case Mode::alert:
    case Mode::question:
        return pressAlert(key);
    case Mode::help:
    case Mode::card:
        return pressReading(key, now);
    case Mode::rows:
        break;
    }
    return pressRows(key, now);
}

PanelInput::Command PanelInput::pressControl(const std::string& letter) {
    if (letter == "c")
        return plain(focus_.mode == Mode::question ? Kind::acknowledgeAlert : Kind::quit);
    if (letter == "z")
        return plain(Kind::suspend);
    if (letter == "l")
        return plain(Kind::repaint);
    return std::nullopt;
}

PanelInput::Command PanelInput::pressAlert(const Key& key) {
    const bool asks = focus_.mode == Mode::question;
    if (key.kind == Key::Kind::enter || (asks && key.kind == Key::Kind::escape))
        return plain(asks ? Kind::refuseAlert : Kind::acknowledgeAlert);
    if (asks && key.kind == Key::Kind::text && key.text == "q")
        return plain(Kind::acknowledgeAlert);
    if (key.kind == Key::Kind::pageUp || key.kind == Key::Kind::pageDown)
        focus_.scroll = std::max(0, focus_.scroll + (key.kind == Key::Kind::pageUp ? -page_ : page_));
    return std::nullopt;
}

/// Help, or a card that is over.
PanelInput::Command PanelInput::pressReading(const Key& key, WallTime now) {
    switch (key.kind) {
    case Key::Kind::up:
        focus_.scroll = std::max(0, focus_.scroll - 1);
        return std::nullopt;
    case Key::Kind::down:
        ++focus_.scroll;
        return std::nullopt;
    case Key::Kind::pageUp:
        focus_.scroll = std::max(0, focus_.scroll - page_);
        return std::nullopt;
    case Key::Kind::pageDown:
        focus_.scroll += page_;
        return std::nullopt;
    default:
        break;
    }
    focus_.scroll = 0;
    if (std::exchange(focus_.mode, Mode::rows) != Mode::card)
        return std::nullopt;
    if (key.kind == Key::Kind::text && key.text == "t")
        refuseTyping("No answer to this card can be typed here.", now);
    return plain(Kind::closeCard);
}

PanelInput::Command PanelInput::pressRows(const Key& key, WallTime now) {
    switch (key.kind) {
    case Key::Kind::up:
        move(-1);
        return std::nullopt;
    case Key::Kind::down:
        move(1);
        return std::nullopt;
    case Key::Kind::home:
        move(-static_cast<int>(focus_.list().size()));
        return std::nullopt;
    case Key::Kind::end:
        move(static_cast<int>(focus_.list().size()));
        return std::nullopt;
    case Key::Kind::pageUp:
        page(-1);
        return std::nullopt;
    case Key::Kind::pageDown:
        page(1);
        return std::nullopt;
    case Key::Kind::tab:
    case Key::Kind::backTab: {
        const int by = key.kind == Key::Kind::tab ? 1 : panelSections - 1;
        if (focus_.section == PanelSection::results)
            return openSection(PanelSection::inbox);
        return openSection(
            static_cast<PanelSection>((static_cast<int>(focus_.section) + by) % panelSections));
    }
    case Key::Kind::enter:
        return enter(now);
    case Key::Kind::escape:
        return leave();
    case Key::Kind::control:
        if (key.text == "d" || key.text == "u")
            move(key.text == "d" ? 10 : -10);
        return std::nullopt;
    case Key::Kind::text:
        return key.text.size() == 1 ? pressText(key.text[0], now) : std::nullopt;
    default:
        return std::nullopt;
    }
}

PanelInput::Command PanelInput::pressText(char letter, WallTime now) {
    if (letter >= '0' && letter <= '9')
        return focus_.section == PanelSection::inbox ? pressDigit(letter, now) : std::nullopt;
    focus_.digits.clear();
    switch (letter) {
    case 'k':
    case 'j':
        move(letter == 'j' ? 1 : -1);
        return std::nullopt;
    case ' ':
        return enter(now);
    case 'i':
        return openSection(PanelSection::inbox);
    case 'g':
        return openSection(PanelSection::agents);
    case 'h':
        return openSection(PanelSection::receipts);
    case '/':
        if (focus_.section == PanelSection::results)
            return openBar(focus_.searchedFor);
        return openBar(content_->bar.error ? content_->bar.text : std::string());
    case 'F':
        return focus_.section == PanelSection::receipts ? filterReceipts() : std::nullopt;
    case 't':
        return focus_.section == PanelSection::inbox
                   ? beginTyping(now)
                   : refuseTyping("An answer is typed in the Inbox: i goes there.", now);
    case 'w':
        return showTerminal();
    case 'o':
        return plain(Kind::openMain);
    case 'r':
        return content_->menu.retry ? Command(plain(Kind::retry)) : std::nullopt;
    case 'f':
        return content_->menu.setup ? Command(plain(Kind::finishSetup)) : std::nullopt;
    case 'b':
        return content_->menu.background ? Command(plain(Kind::openLoginItems)) : std::nullopt;
    case 'y':
        return linkShown_ ? Command(plain(Kind::copyLink)) : std::nullopt;
    case 'Y':
        return linkShown_ ? Command(plain(Kind::copyTunnel)) : std::nullopt;
    case '?':
        focus_.mode = Mode::help;
        focus_.scroll = 0;
        return std::nullopt;
    case 'q':
        return plain(Kind::quit);
    default:
        return focus_.section == PanelSection::inbox ? pressCardKey(letter, now) : std::nullopt;
    }
}

PanelInput::Command PanelInput::enter(WallTime now) {
    if (!focus_.digits.empty())
        return chooseOption(static_cast<std::size_t>(std::stoul(focus_.digits)), now);
    if (const auto* const agent = selectedAgent()) {
        if (agent->cards == 0)
            return showTerminal();
        const auto words = agent->line.name + (agent->line.place.empty() ? "" : " · " + agent->line.place);
        focus_.only = CardFilter{.words = words, .agent = agent->agent, .sessionId = agent->sessionId};
        return openSection(PanelSection::inbox);
    }
    if (focus_.section == PanelSection::results)
        return focus_.hits.empty() ? std::nullopt : openHit(content_->hits[focus_.hits.index()].hit, now);
    if (focus_.section == PanelSection::receipts) {
        if (focus_.receipts.empty())
            return std::nullopt;
        const auto& card = content_->receipts[focus_.receipts.index()].card;
        return card ? showCard(*card, now) : hint("This line is of no card.");
    }
    if (layout_.wide)
        page(1);
    else
        focus_.expanded = selectedRow() && !focus_.expanded;
    return std::nullopt;
}

/// Escape takes away what lies on top.
PanelInput::Command PanelInput::leave() {
    if (!focus_.digits.empty())
        focus_.digits.clear();
    else if (dismissing_)
        dismissing_.reset();
    else if (linkShown_)
        return plain(Kind::dismissLink);
    else if (focus_.expanded)
        focus_.expanded = false;
    else if (focus_.section == PanelSection::receipts && !focus_.receiptFilter.empty()) {
        focus_.receiptFilter.clear();
        return plain(Kind::readReceipts);
    } else if (focus_.section == PanelSection::inbox && focus_.only)
        focus_.only.reset();
    else if (focus_.section != PanelSection::inbox)
        return openSection(PanelSection::inbox);
    return std::nullopt;
}

PanelInput::Command PanelInput::openSection(PanelSection section) {
    if (section != PanelSection::inbox)
        focus_.only.reset();
    focus_.section = section;
    focus_.expanded = false;
    focus_.scroll = 0;
    dismissing_.reset();
    if (section == PanelSection::receipts)
        return PanelCommand{.kind = Kind::readReceipts, .text = focus_.receiptFilter};
    return std::nullopt;
}

void PanelInput::move(int by) {
    focus_.digits.clear();
    dismissing_.reset();
    if (!focus_.list().move(by))
        return;
    focus_.expanded = false;
    focus_.scroll = 0;
    steadySince_ = distantPast; // the user looks where the user went
}

/// In a row, or a card beside the list, that is longer than the screen; else from row to row.
void PanelInput::page(int by) {
    if (layout_.wide)
        focus_.scroll = std::max(0, focus_.scroll + by * page_);
    else if (focus_.expanded)
        focus_.list().scrollBy(by * std::max(1, page_ - 1));
    else
        move(by * std::max(1, page_ / (PanelRules::listHeight + 1)));
}

bool PanelInput::settled(WallTime now) const {
    return (now - steadySince_).count() >= settling || now < steadySince_;
}

const PanelEntry* PanelInput::selectedRow() const {
    return focus_.inbox.empty() ? nullptr : &content_->inbox[focus_.inbox.index()];
}

const PanelCard* PanelInput::selectedCard() const {
    const auto* const row = selectedRow();
    return row ? row->card() : nullptr;
}

const PanelAgent* PanelInput::selectedAgent() const {
    const bool any = focus_.section == PanelSection::agents && !focus_.agents.empty();
    return any ? &content_->agents[focus_.agents.index()] : nullptr;
}

PanelInput::Command PanelInput::hint(std::string words) {
    focus_.digits.clear();
    focus_.hint = std::move(words);
    return std::nullopt;
}

} // namespace kelvadrome
