#include "Kelvadrome/gtk/parts/CardView.h"

#include "Kelvadrome/gtk/parts/AccessibleName.h"
#include "Kelvadrome/gtk/parts/FlowRow.h"
#include "Kelvadrome/gtk/parts/Focus.h"
#include "Kelvadrome/gtk/parts/Words.h"
#include "Kelvadrome/model/LocalTime.h"
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

Gtk::Box* box(Gtk::Orientation orientation, int spacing) {
    return Gtk::make_managed<Gtk::Box>(orientation, spacing);
}

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

/// All answers to choose from, in the card's order, so that each has the number that it has on the page.
std::vector<PanelAction> optionsOf(const PanelCard& card) {
    std::vector<PanelAction> options;
    for (const auto& option : card.card.options) {
        const auto offered = std::ranges::find_if(card.actions, [&](const auto& action) {
            return action.kind == PanelAction::Kind::answer && action.answer == option;
        });
        options.push_back(
            offered != card.actions.end()
                ? *offered
                : PanelAction{.kind = PanelAction::Kind::answer, .words = option, .answer = option});
    }
    return options;
}

/// Whether the suggested answer is none of the options, and so has a button of its own.
bool standsAlone(const PanelAction& action, const PanelCard& card) {
    return action.kind != PanelAction::Kind::answer ||
           std::ranges::find(card.card.options, action.answer) == card.card.options.end();
}

std::string laterWords(const std::optional<WallTime>& later) {
    if (!later)
        return {};
    return "Snoozed until " + clockTime(*later);
}

/// Whether keys are typed into a text within.
bool isTyped(Gtk::Widget& within) {
    auto* const root = gtk_widget_get_root(GTK_WIDGET(within.gobj()));
    return root && GTK_IS_TEXT(gtk_root_get_focus(root));
}

bool isBlank(const std::string& text) {
    return text.find_first_not_of(" \t") == std::string::npos;
}

// The keys of a card's controls.
constexpr const char* foldKey = "fold";
constexpr const char* sendKey = "send";
constexpr const char* keepKey = "keep";
std::string textKey(const std::string& question) {
    return "text " + question;
}
/// An option may bear the words of an action.
std::string pressKey(const PanelAction& action) {
    return fmt::format("press {} {}", static_cast<int>(action.kind), action.words);
}

/// The row without what time changes in it: while this stays, so do the widgets.
PanelRow lasting(PanelRow row) {
    if (auto* const card = std::get_if<PanelCard>(&row)) {
        card->age.clear();
        card->later.reset();
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
        again = control(pressKey(*hold->undo));
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
        const auto later = laterWords(card->later);
        snoozedUntil_->set_text(later);
        snoozedUntil_->set_visible(!later.empty());
    } else if (undoTime_) {
        const auto& hold = std::get<HoldRow>(row);
        undoTime_->set_fraction(hold.duration > 0 ? std::clamp(hold.left / hold.duration, 0.0, 1.0) : 0);
    }
}

void CardView::buildCard(const PanelCard& card) {
    const bool high = card.highRisk;
    if (high)
        add_css_class("high-risk");
    auto* const head = box(Gtk::Orientation::HORIZONTAL, 6);
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
        if (const auto options = optionsOf(card); !options.empty())
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

/// Answers in one's own words.
void CardView::addAnswer(Gtk::Box& to, const PanelCard& card) {
    if (card.card.rows && !card.card.rows->empty()) {
        if (!card.highRisk) // the page alone reviews several answers at once
            addBatch(to, card);
    } else if (card.takesText()) {
        addFreeAnswer(to, card);
    }
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
    keep(foldKey, *fold); // it stands before what it holds
    auto* const all = box(Gtk::Orientation::VERTICAL, 6);
    addText(*all, card);
    auto options = optionsOf(card);
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

Gtk::Entry* CardView::entry(const std::string& card, const std::string& question, const std::string& name) {
    auto* const made = Gtk::make_managed<Gtk::Entry>();
    made->set_hexpand(true);
    made->set_text(desk_->drafts[card][question]);
    setAccessibleName(*made, name);
    made->signal_changed().connect(
        [this, made, card, question] { desk_->drafts[card][question] = made->get_text(); });
    keep(textKey(question), *made);
    return made;
}

void CardView::addFreeAnswer(Gtk::Box& to, const PanelCard& card) {
    auto* const row = box(Gtk::Orientation::HORIZONTAL, 6);
    auto* const words = entry(card.card.id, "", "Answer to: " + card.summary);
    words->set_placeholder_text(card.card.options.empty() ? "Type an answer" : "Or in your own words");
    auto* const send = Gtk::make_managed<Gtk::Button>(card.highRisk ? "Review…" : "Send");
    send->set_sensitive(!isBlank(words->get_text()));
    words->signal_changed().connect([words, send] { send->set_sensitive(!isBlank(words->get_text())); });
    const auto sends = [this, words, asked = card.card, reviewed = card.highRisk] {
        if (isBlank(words->get_text()))
            return;
        (reviewed ? desk_->reviewAnswer : desk_->answer)(asked, words->get_text());
    };
    words->signal_activate().connect(sends);
    send->signal_clicked().connect(sends);
    keep(sendKey, *send);
    row->append(*words);
    row->append(*send);
    to.append(*row);
}

void CardView::addBatch(Gtk::Box& to, const PanelCard& card) {
    for (const auto& question : *card.card.rows) {
        auto* const row = box(Gtk::Orientation::VERTICAL, 6);
        row->append(*wordsLabel(question.text, ""));
        desk_->drafts[card.card.id].try_emplace(question.questionId, question.defaultAnswer.value_or(""));
        auto* const words = entry(card.card.id, question.questionId, "Answer to: " + question.text);
        words->set_placeholder_text(question.defaultAnswer.value_or("Type an answer"));
        words->signal_activate().connect([this, asked = card.card] { sendBatch(asked); });
        row->append(*words);
        to.append(*row);
    }
    auto* const send = Gtk::make_managed<Gtk::Button>("Send answers");
    send->set_halign(Gtk::Align::START);
    send->signal_clicked().connect([this, asked = card.card] { sendBatch(asked); });
    keep(sendKey, *send);
    to.append(*send);
}

/// The first question that has no answer takes the focus instead.
void CardView::sendBatch(const Card& card) {
    std::map<std::string, std::string> answers;
    for (const auto& question : *card.rows) {
        auto* const field = dynamic_cast<Gtk::Entry*>(control(textKey(question.questionId)));
        std::string words = field ? field->get_text() : Glib::ustring();
        if (isBlank(words))
            words = question.defaultAnswer.value_or("");
        if (isBlank(words)) {
            if (field) {
                field->add_css_class("error");
                field->grab_focus();
            }
            return;
        }
        answers[question.questionId] = std::move(words);
    }
    desk_->answerBatch(card, std::move(answers));
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

void CardView::addDismissal(const PanelCard& card) {
    append(*wordsLabel(std::string(DesignWords::card::dismissAsks) + " The agent is told nothing.", ""));
    auto* const row = box(Gtk::Orientation::HORIZONTAL, 6);
    auto* const keeps = Gtk::make_managed<Gtk::Button>(std::string(DesignWords::card::keep));
    setAccessibleDescription(*keeps, card.summary);
    keeps->signal_clicked().connect([this] { showDismissal(false); });
    keep(keepKey, *keeps);
    row->append(*keeps);
    const PanelAction dismiss{
        .kind = PanelAction::Kind::dismiss, .words = std::string(DesignWords::action::dismiss.word)};
    auto* const dismisses = Gtk::make_managed<Gtk::Button>(dismiss.words);
    dismisses->add_css_class("destructive-action");
    setAccessibleDescription(*dismisses, card.summary);
    dismisses->signal_clicked().connect(
        [this, dismiss, asked = card.card] { desk_->perform(dismiss, asked); });
    keep(pressKey(dismiss), *dismisses);
    row->append(*dismisses);
    append(*row);
}

void CardView::showDismissal(bool asks) {
    asksToDismiss_ = asks;
    build(PanelRow(*shown_));
    if (auto* const first = asks ? control(keepKey) : nullptr) {
        first->grab_focus();
    } else {
        focusTitle();
    }
}

/// A press on a button or its key.
void CardView::choose(const PanelAction& action, const Card& card) {
    if (action.kind == PanelAction::Kind::dismiss) {
        showDismissal(true);
    } else if (action.kind == PanelAction::Kind::answer && card.risk == "high") {
        desk_->reviewAnswer(card, action.answer);
    } else {
        desk_->perform(action, card);
    }
}

bool CardView::press(guint key) {
    if (!shown_)
        return false;
    const auto row = *shown_; // a press may replace it
    using Kind = PanelAction::Kind;
    const auto* const card = std::get_if<PanelCard>(&row);
    if (card && key >= GDK_KEY_1 && key <= GDK_KEY_9)
        return pressOption(*card, key - GDK_KEY_1);
    switch (key) {
    case GDK_KEY_a:
        return pressFirst(row, {Kind::answer, Kind::acceptDefaults});
    case GDK_KEY_t:
        return writeAnswer();
    case GDK_KEY_u:
        return pressFirst(row, {Kind::undo});
    case GDK_KEY_z:
        return pressFirst(row, {Kind::snooze, Kind::wake});
    case GDK_KEY_x:
        return pressFirst(row, {Kind::dismiss});
    default:
        return false;
    }
}

bool CardView::pressOption(const PanelCard& card, std::size_t index) {
    if (index >= card.card.options.size())
        return false;
    if (card.takesAnswer() || (card.takesReviewedAnswer() && form_ == Form::open)) {
        choose(optionsOf(card)[index], card.card);
        return true;
    }
    return pressFirst(card, {PanelAction::Kind::review});
}

bool CardView::pressFirst(const PanelRow& row, std::initializer_list<PanelAction::Kind> kinds) {
    std::vector<PanelAction> offered;
    if (const auto* const card = std::get_if<PanelCard>(&row)) {
        offered = card->actions;
    } else if (const auto& undo = std::get<HoldRow>(row).undo) {
        offered = {*undo};
    }
    const auto found = std::ranges::find_if(
        offered, [&](const auto& action) { return std::ranges::find(kinds, action.kind) != kinds.end(); });
    if (found == offered.end())
        return false;
    choose(*found, cardOf(row));
    return true;
}

bool CardView::writeAnswer() {
    for (const auto& [key, widget] : controls_) {
        if (key == foldKey)
            dynamic_cast<Gtk::Expander&>(*widget).set_expanded(true);
        if (auto* const text = dynamic_cast<Gtk::Entry*>(widget))
            return text->grab_focus();
    }
    return false;
}

Gtk::Box* CardView::buttons(const std::vector<PanelAction>& actions, const PanelCard& card) {
    auto* const row = box(Gtk::Orientation::HORIZONTAL, 0);
    flow(*row);
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
        row->append(*press);
    }
    return row;
}

void CardView::buildHold(const HoldRow& hold) {
    if (hold.committed)
        desk_->drafts.erase(hold.card.id);
    append(*wordsLabel(origin(hold.agent, hold.place, hold.topic, ""), "caption"));
    auto* const row = box(Gtk::Orientation::HORIZONTAL, 6);
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
        auto* const words = box(Gtk::Orientation::HORIZONTAL, 8);
        words->set_halign(Gtk::Align::CENTER);
        words->append(*wordsLabel(number, "key"));
        words->append(*label);
        made->set_child(*words);
    }
    setAccessibleName(*made, (action.note.empty() ? action.words : action.words + ". " + action.note) +
                                 (reviewed ? ", to be reviewed first" : ""));
    setAccessibleDescription(*made, InboxLogic::summary(card));
    made->signal_clicked().connect([this, action, card] { choose(action, card); });
    keep(pressKey(action), *made);
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
