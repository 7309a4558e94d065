#include "Kelvadrome/terminal/panel/PanelInput.h"

#include "KelvadromeKit/support/Text.h"

#include <fmt/format.h>

#include <algorithm>

namespace kelvadrome {

namespace {

using Kind = PanelCommand::Kind;
using Mode = PanelFocus::Mode;

constexpr const char* highRiskHint = "High risk: v reviews it in kelvadrome.";
constexpr const char* justChangedHint = "This row has just changed. Look again, then press again.";

/// Whether an answer that is meant for one card fits the other: the same question with the same answers.
bool sameQuestion(const Card& left, const Card& right) {
    return left.id == right.id && left.version == right.version && left.options == right.options &&
           left.defaultAnswer == right.defaultAnswer && left.risk == right.risk && left.rows == right.rows;
}

const PanelRow* rowOf(const MenuPanelContent& content, const std::optional<std::string>& id) {
    if (!id)
        return nullptr;
    const auto found =
        std::ranges::find_if(content.rows, [&](const auto& row) { return cardOf(row).id == *id; });
    return found == content.rows.end() ? nullptr : &*found;
}

/// Why no answer to this card can be pressed.
const char* whyNoAnswer(const PanelCard& row) {
    if (!row.way.empty())
        return "An answer to this is under way already.";
    return row.highRisk ? highRiskHint : "No answer can be typed for this: v opens it in kelvadrome.";
}

PanelCommand plain(Kind kind) {
    return {.kind = kind};
}

} // namespace

void PanelInput::update(const MenuPanelContent& content, const std::vector<Card>& open, WallTime now) {
    const auto* before = selectedRow();
    const auto* after = rowOf(content, focus_.selected);
    if (focus_.typingTo) {
        const auto& card = focus_.typingTo->card;
        const auto* row = rowOf(content, card.id);
        focus_.typingGone = (row && !takesAnswer(*row)) ||
                            std::ranges::none_of(open, [&](const Card& c) { return sameQuestion(c, card); });
    }
    if (after) {
        index_ = static_cast<std::size_t>(after - content.rows.data());
        const bool same = before && before->index() == after->index() &&
                          takesAnswer(*before) == takesAnswer(*after) &&
                          sameQuestion(cardOf(*before), cardOf(*after));
        if (!same) {
            steadySince_ = now;
            focus_.digits.clear();
        }
    } else {
        index_ = content.rows.empty() ? 0 : std::min(index_, content.rows.size() - 1);
        focus_.selected =
            content.rows.empty() ? std::nullopt : std::optional(cardOf(content.rows[index_]).id);
        focus_.expanded = false;
        focus_.digits.clear();
        steadySince_ = now;
    }
    content_ = content;
}

void PanelInput::drawn(int scroll, int page) {
    focus_.scroll = scroll;
    page_ = std::max(1, page);
}

void PanelInput::setAlert(bool on, bool asks) {
    const bool shown = focus_.mode == Mode::alert || focus_.mode == Mode::question;
    const auto message = asks ? Mode::question : Mode::alert;
    if (on ? focus_.mode == message : !shown)
        return;
    focus_.mode = on ? message : focus_.typingTo ? Mode::typing : Mode::rows;
    focus_.scroll = 0;
}

std::optional<PanelCommand> PanelInput::press(const Key& key, WallTime now) {
    focus_.hint.clear();
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
    if (focus_.mode == Mode::typing)
        return pressTyping(key);
    switch (key.kind) {
    case Key::Kind::pageUp:
        page(-1);
        return std::nullopt;
    case Key::Kind::pageDown:
        page(1);
        return std::nullopt;
    default:
        break;
    }
    if (focus_.mode == Mode::question) {
        if (key.kind == Key::Kind::enter || key.kind == Key::Kind::escape)
            return plain(Kind::refuseAlert);
        if (key.kind == Key::Kind::text && key.text == "q")
            return plain(Kind::acknowledgeAlert);
        return std::nullopt;
    }
    if (focus_.mode == Mode::alert) {
        if (key.kind == Key::Kind::enter)
            return plain(Kind::acknowledgeAlert);
        return std::nullopt;
    }
    if (focus_.mode == Mode::help) {
        focus_.mode = Mode::rows;
        focus_.scroll = 0;
        return std::nullopt;
    }
    switch (key.kind) {
    case Key::Kind::up:
    case Key::Kind::backTab:
        move(-1);
        return std::nullopt;
    case Key::Kind::down:
    case Key::Kind::tab:
        move(1);
        return std::nullopt;
    case Key::Kind::enter:
        if (!focus_.digits.empty())
            return chooseOption(static_cast<std::size_t>(std::stoul(focus_.digits)), now);
        focus_.expanded = selectedRow() && !focus_.expanded;
        return std::nullopt;
    case Key::Kind::escape:
        if (!focus_.digits.empty()) {
            focus_.digits.clear();
        } else if (linkShown_) {
            return plain(Kind::dismissLink);
        } else {
            focus_.expanded = false;
        }
        return std::nullopt;
    case Key::Kind::text:
        return pressText(key.text, now);
    default:
        return std::nullopt;
    }
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

PanelInput::Command PanelInput::pressText(const std::string& text, WallTime now) {
    if (text.size() != 1)
        return std::nullopt;
    const char letter = text[0];
    if (letter >= '0' && letter <= '9')
        return pressDigit(text, now);
    focus_.digits.clear();
    switch (letter) {
    case 'k':
        move(-1);
        return std::nullopt;
    case 'j':
        move(1);
        return std::nullopt;
    case ' ':
        focus_.expanded = selectedRow() && !focus_.expanded;
        return std::nullopt;
    case 'a':
        return answering(Kind::answer, PanelAction::Kind::answer, now);
    case 'd':
        return answering(Kind::acceptDefaults, PanelAction::Kind::acceptDefaults, now);
    case 't':
        return beginTyping(now);
    case 'u':
        return undo();
    case 'z':
        return snooze(now);
    case 'v':
        return review();
    case 'e':
        return answering(Kind::bringEdgeToFront, PanelAction::Kind::bringEdgeToFront, now);
    case 'o':
        return plain(Kind::openMain);
    case 'r':
        return content_.retry ? Command(plain(Kind::retry)) : std::nullopt;
    case 'f':
        return content_.setup ? Command(plain(Kind::finishSetup)) : std::nullopt;
    case 'b':
        return content_.background ? Command(plain(Kind::openLoginItems)) : std::nullopt;
    case 'y':
        return linkShown_ ? Command(plain(Kind::copyLink)) : std::nullopt;
    case '?':
        focus_.mode = Mode::help;
        focus_.scroll = 0;
        return std::nullopt;
    case 'q':
        return plain(Kind::quit);
    default:
        return std::nullopt;
    }
}

PanelInput::Command PanelInput::pressDigit(const std::string& digit, WallTime now) {
    const auto* row = selectedCard();
    if (!row)
        return std::nullopt;
    if (!row->takesAnswer())
        return hint(whyNoAnswer(*row));
    const auto count = row->card.options.size();
    if (focus_.digits.size() < 4)
        focus_.digits += digit;
    const auto number = static_cast<std::size_t>(std::stoul(focus_.digits));
    if (number == 0 || number > count) {
        focus_.digits.clear();
        return hint(count == 0 ? "This card has no options; t types an answer." : "There is no such option.");
    }
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
        return hint(justChangedHint);
    return PanelCommand{.kind = Kind::answer, .card = row->card, .text = row->card.options[number - 1]};
}

PanelInput::Command PanelInput::answering(Kind kind, PanelAction::Kind offered, WallTime now) {
    const auto* row = selectedCard();
    if (!row)
        return std::nullopt;
    const auto action = std::ranges::find(row->actions, offered, &PanelAction::kind);
    if (action == row->actions.end()) {
        if (kind == Kind::bringEdgeToFront)
            return hint("This card doesn't hold Edge.");
        if (!row->takesAnswer())
            return hint(whyNoAnswer(*row));
        return hint(
            kind == Kind::answer ? "This card suggests no answer." : "This card has no set of defaults.");
    }
    if (!settled(now))
        return hint(justChangedHint);
    return PanelCommand{.kind = kind, .card = row->card, .text = action->answer};
}

/// What was snoozed by mistake would be out of sight for long.
PanelInput::Command PanelInput::snooze(WallTime now) {
    const auto* row = selectedCard();
    if (!row)
        return std::nullopt;
    if (!row->offers(PanelAction::Kind::snooze))
        return hint("An answer to this is under way: it stays in sight.");
    if (!settled(now))
        return hint(justChangedHint);
    return PanelCommand{.kind = Kind::snooze, .card = row->card, .text = {}};
}

PanelInput::Command PanelInput::review() {
    const auto* row = selectedCard();
    if (!row)
        return std::nullopt;
    return PanelCommand{.kind = Kind::review, .card = row->card, .text = {}};
}

PanelInput::Command PanelInput::undo() {
    const auto* row = selectedRow();
    if (const auto* card = selectedCard(); card && card->offers(PanelAction::Kind::undo))
        return PanelCommand{.kind = Kind::undo, .card = card->card, .text = {}}; // pressed elsewhere
    const auto* hold = row ? std::get_if<HoldRow>(row) : nullptr;
    if (!hold || !hold->undo) {
        // The one answer on its way needs no picking first: there are only seconds.
        hold = nullptr;
        for (const auto& other : content_.rows) {
            const auto* candidate = std::get_if<HoldRow>(&other);
            if (!candidate || !candidate->undo)
                continue;
            if (hold)
                return hint("Two answers are on their way: pick one, then u.");
            hold = candidate;
        }
    }
    if (!hold)
        return hint("Nothing to undo.");
    return PanelCommand{.kind = Kind::undo, .card = hold->card, .text = {}};
}

PanelInput::Command PanelInput::beginTyping(WallTime now) {
    const auto* row = selectedCard();
    if (!row)
        return std::nullopt;
    if (!row->takesAnswer())
        return hint(whyNoAnswer(*row));
    if (row->card.kind == "batch")
        return hint("This card asks several questions: v opens it in kelvadrome.");
    if (!settled(now))
        return hint(justChangedHint);
    focus_.mode = Mode::typing;
    focus_.typingTo = *row;
    focus_.typingGone = false;
    focus_.editor.clear();
    // What was left, or came back refused, isn't lost.
    if (draftOf_ == row->card.id)
        focus_.editor.insert(draft_);
    return std::nullopt;
}

void PanelInput::move(int by) {
    focus_.digits.clear();
    const auto count = static_cast<int>(content_.rows.size());
    if (count == 0)
        return;
    const auto to = std::clamp(static_cast<int>(index_) + by, 0, count - 1);
    if (to == static_cast<int>(index_))
        return;
    index_ = static_cast<std::size_t>(to);
    focus_.selected = cardOf(content_.rows[index_]).id;
    focus_.expanded = false;
    focus_.scroll = 0;          // of a row that is higher than the screen the beginning shows
    steadySince_ = distantPast; // the user looks where the user went
}

void PanelInput::page(int by) {
    if (focus_.mode != Mode::rows || focus_.expanded) {
        focus_.scroll = std::max(0, focus_.scroll + by * std::max(1, page_ - 1));
    } else {
        move(by);
    }
}

bool PanelInput::settled(WallTime now) {
    return (now - steadySince_).count() >= settling || now < steadySince_;
}

const PanelRow* PanelInput::selectedRow() const {
    return rowOf(content_, focus_.selected);
}

const PanelCard* PanelInput::selectedCard() const {
    const auto* row = selectedRow();
    return row ? std::get_if<PanelCard>(row) : nullptr;
}

PanelInput::Command PanelInput::hint(std::string words) {
    focus_.digits.clear();
    focus_.hint = std::move(words);
    return std::nullopt;
}

} // namespace kelvadrome
