#include "Kelvadrome/gtk/parts/CardView.h"

#include "Kelvadrome/gtk/parts/AccessibleName.h"
#include "Kelvadrome/gtk/parts/CardControls.h"
#include "Kelvadrome/gtk/parts/FlowRow.h"
#include "Kelvadrome/gtk/parts/Focus.h"
#include "Kelvadrome/gtk/parts/Words.h"
#include "KelvadromeKit/attention/DesignWords.h"
#include "KelvadromeKit/attention/InboxLogic.h"

#include <fmt/format.h>

#include <algorithm>
#include <gtkmm/button.h>
#include <gtkmm/eventcontrollerkey.h>
#include <gtkmm/expander.h>
#include <gtkmm/image.h>

namespace kelvadrome {

namespace {

/// Who asks and where, about what, and since when.
std::string origin(const std::string& agent, const std::string& place,
    const std::optional<std::string>& topic, const std::string& age) {
    std::string words = agent;
    for (const auto& more : {place, topic.value_or(""), age})
        words += more.empty() ? "" : " · " + more;
    return words;
}

bool isChoice(const PanelAction& action) {
    return action.kind == PanelAction::Kind::answer || action.kind == PanelAction::Kind::acceptDefaults;
}

/// Whether the suggested answer is none of the options, and so has a button of its own.
bool standsAlone(const PanelAction& action, const PanelCard& card) {
    return action.kind != PanelAction::Kind::answer ||
           std::ranges::find(card.card.options, action.answer) == card.card.options.end();
}

/// Whether keys are typed into a text within.
bool isTyped(Gtk::Widget& within) {
    auto* const root = gtk_widget_get_root(GTK_WIDGET(within.gobj()));
    return root && GTK_IS_TEXT(gtk_root_get_focus(root));
}

/// The row without what time changes in it: while this stays, so do the widgets.
PanelRow lasting(PanelRow row) {
    if (auto* const card = std::get_if<PanelCard>(&row)) {
        card->age.clear();
        card->later.reset();
        card->snoozed.clear();
    } else {
        std::get<HoldRow>(row).left = 0;
    }
    return row;
}

} // namespace

CardView::CardView(std::shared_ptr<CardDesk> desk, Form form)
    : Gtk::Box(Gtk::Orientation::VERTICAL, 6), desk_(std::move(desk)), form_(form) {
    g_object_set(gobj(), "accessible-role", GTK_ACCESSIBLE_ROLE_GROUP, nullptr);
    add_css_class("card");
    add_css_class("question");
    const auto keys = Gtk::EventControllerKey::create();
    keys->signal_key_pressed().connect(
        [this](guint key, guint, Gdk::ModifierType state) {
            const auto chords =
                Gdk::ModifierType::CONTROL_MASK | Gdk::ModifierType::ALT_MASK | Gdk::ModifierType::SUPER_MASK;
            return (state & chords) == Gdk::ModifierType{} && !isTyped(*this) && press(key);
        },
        false);
    add_controller(keys);
}

void CardView::show(const PanelRow& row) {
    if (shown_ == row)
        return;
    const bool same = shown_ && lasting(*shown_) == lasting(row);
    shown_ = row;
    if (same)
        return refresh(row);
    asksToDismiss_ = false;
    // An answer on its way takes the room of its card, so that nothing below it moves under the pointer.
    set_size_request(-1, std::holds_alternative<HoldRow>(row) ? get_height() : -1);
    const bool hadFocus = holdsFocus(*this);
    const auto focused = focusedControl();
    build(row);
    if (!hadFocus)
        return;
    // Never to another answer: the next press may be meant for what was there before.
    auto* again = focused ? control(*focused) : nullptr;
    if (const auto* const hold = std::get_if<HoldRow>(&row); hold && hold->undo)
        again = control(CardControls::pressKey(*hold->undo));
    if (!again) {
        focusTitle();
        return;
    }
    again->grab_focus();
    if (auto* const text = dynamic_cast<Gtk::Entry*>(again))
        text->set_position(-1); // selecting all, as taking the focus does, would have the next key replace it
}

/// What stands for the whole card when a screen reader comes by.
Gtk::Label* CardView::makeTitle(const std::string& words) {
    title_ = wordsLabel(words, "summary");
    title_->set_selectable(true); // no other label takes the focus
    g_object_set(title_->gobj(), "accessible-role", GTK_ACCESSIBLE_ROLE_HEADING, nullptr);
    setAccessibleName(*this, words);
    return title_;
}

void CardView::build(const PanelRow& row) {
    while (auto* const child = get_first_child())
        remove(*child);
    controls_.clear();
    title_ = origin_ = snoozedUntil_ = nullptr;
    undoTime_ = nullptr;
    remove_css_class("high-risk");
    if (const auto* const card = std::get_if<PanelCard>(&row)) {
        buildCard(*card);
    } else {
        buildHold(std::get<HoldRow>(row));
    }
    refresh(row);
}

/// What time changes.
void CardView::refresh(const PanelRow& row) {
    if (const auto* const card = std::get_if<PanelCard>(&row)) {
        const auto words = origin(card->agent, card->place, card->topic, card->age);
        origin_->set_text(words);
        setAccessibleName(*title_, (card->highRisk ? "High risk, " : "") + words + ", " + card->summary +
                                       (card->refused ? ", your answer was not delivered" : "") +
                                       (card->way.empty() ? "" : ", " + card->way));
        snoozedUntil_->set_text(card->snoozed);
        snoozedUntil_->set_visible(!card->snoozed.empty());
    } else if (undoTime_) {
        const auto& hold = std::get<HoldRow>(row);
        undoTime_->set_fraction(hold.duration > 0 ? std::clamp(hold.left / hold.duration, 0.0, 1.0) : 0);
    }
}

void CardView::buildCard(const PanelCard& card) {
    const bool high = card.highRisk;
    if (high)
        add_css_class("high-risk");
    auto* const head = CardControls::box(Gtk::Orientation::HORIZONTAL, 6);
    origin_ = wordsLabel({}, "caption");
    origin_->set_hexpand(true);
    head->append(*origin_);
    if (high)
        head->append(*wordsLabel(std::string(DesignWords::card::highRisk), "risk"));
    append(*head);
    append(*makeTitle(card.summary));
    snoozedUntil_ = wordsLabel({}, "caption");
    append(*snoozedUntil_);
    if (card.refused)
        append(*wordsLabel(card.refusal(), "warning"));
    if (const auto attempt = InboxLogic::lastAttempt(card.card))
        append(*wordsLabel(*attempt, "warning"));
    if (card.card.deliveryNote)
        append(*wordsLabel(*card.card.deliveryNote, "warning"));
    setAccessibleDescription(*title_,
        card.card.deliveryNote.value_or("") +
            (high && form_ == Form::folded ? "" : (card.card.deliveryNote ? "\n" : "") + card.card.body));
    if (form_ == Form::open)
        addText(*this, card);
    if (!high && form_ == Form::folded)
        addFolded(card);
    if (!card.way.empty())
        append(*wordsLabel(card.way, "warning"));
    // The choices, then words of one's own, then what puts the card away: as on the page.
    if (form_ == Form::open && (card.takesAnswer() || card.takesReviewedAnswer())) {
        if (const auto options = CardControls::optionsOf(card); !options.empty())
            append(*buttons(options, card));
        addAnswer(*this, card);
    }
    addActions(card);
}

/// What is asked, below its one line.
void CardView::addText(Gtk::Box& to, const PanelCard& card) {
    if (card.summary != card.card.title)
        to.append(*wordsLabel(card.card.title, ""));
    if (card.card.body.empty())
        return;
    auto* const body = wordsLabel(card.card.body, "");
    body->set_selectable(true);
    body->set_can_focus(false); // the title is what is focused, and tells it
    to.append(*body);
}

/// What an answer would let happen is read at once, as far as it is short.
void CardView::addFolded(const PanelCard& card) {
    auto* const opening = wordsLabel(card.opening.text + (card.opening.more ? " …" : ""), "");
    append(*opening);
    const bool answers = card.takesAnswer();
    if (!answers && !card.opening.more)
        return opening->set_visible(!card.opening.text.empty());
    const auto* const words = answers ? "Read and answer" : "Read";
    auto* const fold = Gtk::make_managed<Gtk::Expander>(words);
    setAccessibleName(*fold, words);
    keep(CardControls::foldKey, *fold); // it stands before what it holds
    auto* const all = CardControls::box(Gtk::Orientation::VERTICAL, 6);
    addText(*all, card);
    auto options = CardControls::optionsOf(card);
    if (answers && !options.empty()) {
        std::erase_if(options, [&](const auto& option) {
            return std::ranges::find(card.actions, option) != card.actions.end();
        });
        all->append(*buttons(options, card));
    }
    if (answers)
        addAnswer(*all, card);
    fold->set_child(*all);
    const auto follow = [this, fold, opening, empty = card.opening.text.empty()] {
        unfolded_ = fold->get_expanded();
        opening->set_visible(!unfolded_ && !empty); // all of it stands below
    };
    fold->set_expanded(unfolded_);
    fold->property_expanded().signal_changed().connect(follow);
    follow();
    append(*fold);
}

/// What a press does at once, and what puts the card away.
void CardView::addActions(const PanelCard& card) {
    if (asksToDismiss_)
        return addDismissal(card);
    auto actions = card.actions;
    if (form_ == Form::open)
        std::erase_if(actions, [&](const auto& action) { return !standsAlone(action, card); });
    if (!actions.empty())
        append(*buttons(actions, card));
    const auto noted =
        std::ranges::find_if(card.actions, [](const auto& action) { return !action.note.empty(); });
    if (noted != card.actions.end())
        append(*wordsLabel(noted->note, "caption"));
}

Gtk::Box* CardView::buttons(const std::vector<PanelAction>& actions, const PanelCard& card) {
    auto* const row = CardControls::box(Gtk::Orientation::HORIZONTAL, 0);
    flow(*row);
    Gtk::Box* aside = nullptr; // what is no answer goes to the next line together
    for (const auto& action : actions) {
        const auto option = std::ranges::find(card.card.options, action.answer);
        const auto number = option - card.card.options.begin() + 1;
        const bool numbered = action.kind == PanelAction::Kind::answer && option != card.card.options.end();
        auto* const press =
            button(action, card.card, numbered && number <= 9 ? std::to_string(number) : std::string());
        const bool chief = !card.actions.empty() && action == card.actions.front();
        if (chief && (isChoice(action) || action.kind == PanelAction::Kind::review)) {
            press->add_css_class("suggested-action");
        } else if (!isChoice(action) && action.kind != PanelAction::Kind::review) {
            press->add_css_class("flat");
        }
        if (isChoice(action) || action.kind == PanelAction::Kind::review) {
            row->append(*press);
            continue;
        }
        if (!aside) {
            aside = CardControls::box(Gtk::Orientation::HORIZONTAL, 6);
            row->append(*aside);
        }
        aside->append(*press);
    }
    return row;
}

void CardView::buildHold(const HoldRow& hold) {
    if (hold.committed)
        desk_->drafts.erase(hold.card.id);
    append(*wordsLabel(origin(hold.agent, hold.place, hold.topic, ""), "caption"));
    auto* const row = CardControls::box(Gtk::Orientation::HORIZONTAL, 6);
    if (hold.committed) {
        auto* const mark = Gtk::make_managed<Gtk::Image>();
        mark->set_from_icon_name("object-select-symbolic");
        row->append(*mark);
    }
    auto* const words = makeTitle(hold.committed ? hold.words : hold.label);
    words->set_hexpand(true);
    row->append(*words);
    if (hold.undo)
        row->append(*button(*hold.undo, hold.card));
    append(*row);
    setAccessibleName(*title_, hold.committed ? hold.words : hold.label + ". " + hold.words);
    if (hold.committed)
        return;
    if (hold.overdue)
        return append(*wordsLabel(hold.words, "warning"));
    undoTime_ = Gtk::make_managed<Gtk::ProgressBar>();
    setAccessibleName(*undoTime_, "Time to undo");
    append(*undoTime_);
    append(*wordsLabel(hold.words, "caption"));
}

/// `number` is that of its key; empty for none.
Gtk::Widget* CardView::button(const PanelAction& action, const Card& card, const std::string& number) {
    const bool reviewed = action.kind == PanelAction::Kind::answer && card.risk == "high";
    auto* const label = wordsLabel(action.words + (reviewed ? "…" : ""), "");
    label->set_xalign(0.5);
    label->set_justify(Gtk::Justification::CENTER);
    auto* const made = Gtk::make_managed<Gtk::Button>();
    if (number.empty()) {
        made->set_child(*label);
    } else {
        auto* const words = CardControls::box(Gtk::Orientation::HORIZONTAL, 8);
        words->set_halign(Gtk::Align::CENTER);
        words->append(*wordsLabel(number, "key"));
        words->append(*label);
        made->set_child(*words);
    }
    setAccessibleName(*made, (action.note.empty() ? action.words : action.words + ". " + action.note) +
                                 (reviewed ? ", to be reviewed first" : ""));
    setAccessibleDescription(*made, InboxLogic::summary(card));
    made->signal_clicked().connect([this, action, card] { choose(action, card); });
    keep(CardControls::pressKey(action), *made);
    return made;
}

std::optional<std::string> CardView::focusedControl() const {
    for (const auto& [key, widget] : controls_) {
        if (holdsFocus(*widget))
            return key;
    }
    return std::nullopt;
}

Gtk::Widget* CardView::control(const std::string& key) const {
    const auto found = std::ranges::find(
        controls_, key, [](const auto& entry) -> const std::string& { return entry.first; });
    return found == controls_.end() ? nullptr : found->second;
}

} // namespace kelvadrome
