#include "Kelvadrome/gtk/parts/CardView.h"

#include "Kelvadrome/gtk/parts/AccessibleName.h"
#include "Kelvadrome/gtk/parts/FlowRow.h"
#include "Kelvadrome/gtk/parts/Focus.h"
#include "Kelvadrome/gtk/parts/Words.h"
#include "KelvadromeKit/attention/InboxLogic.h"

#include <fmt/chrono.h>

#include <algorithm>
#include <gtkmm/button.h>
#include <gtkmm/expander.h>
#include <gtkmm/image.h>

namespace kelvadrome {

namespace {

Gtk::Box* box(Gtk::Orientation orientation, int spacing) {
    return Gtk::make_managed<Gtk::Box>(orientation, spacing);
}

/// Who asks, about what, and since when.
std::string origin(
    const std::string& agent, const std::optional<std::string>& topic, const std::string& age) {
    std::string words = agent;
    for (const auto& more : {topic.value_or(""), age})
        words += more.empty() ? "" : " · " + more;
    return words;
}

/// The answers to choose from, but those that an action offers already.
std::vector<PanelAction> optionsOf(const PanelCard& card) {
    std::vector<PanelAction> options;
    for (const auto& option : card.card.options) {
        const bool offered = std::ranges::any_of(card.actions, [&](const auto& action) {
            return action.kind == PanelAction::Kind::answer && action.answer == option;
        });
        if (!offered)
            options.push_back({.kind = PanelAction::Kind::answer, .words = option, .answer = option});
    }
    return options;
}

std::string laterWords(const std::optional<WallTime>& later) {
    if (!later)
        return {};
    const auto moment = std::chrono::time_point_cast<std::chrono::seconds>(*later);
    return fmt::format(
        "Snoozed until {:%H:%M}", fmt::localtime(std::chrono::system_clock::to_time_t(moment)));
}

bool isBlank(const std::string& text) {
    return text.find_first_not_of(" \t") == std::string::npos;
}

// The keys of a card's controls.
constexpr const char* foldKey = "fold";
constexpr const char* sendKey = "send";
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
}

void CardView::show(const PanelRow& row) {
    if (shown_ == row)
        return;
    const bool same = shown_ && lasting(*shown_) == lasting(row);
    shown_ = row;
    if (same)
        return refresh(row);
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
    return title_;
}

void CardView::build(const PanelRow& row) {
    while (auto* const child = get_first_child())
        remove(*child);
    controls_.clear();
    title_ = origin_ = later_ = nullptr;
    left_ = nullptr;
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
        const auto words = origin(card->agent, card->topic, card->age);
        origin_->set_text(words);
        setAccessibleName(*title_, (card->highRisk ? "High risk, " : "") + words + ", " + card->summary +
                                       (card->refused ? ", your answer was not delivered" : "") +
                                       (card->way.empty() ? "" : ", " + card->way));
        const auto later = laterWords(card->later);
        later_->set_text(later);
        later_->set_visible(!later.empty());
    } else if (left_) {
        const auto& hold = std::get<HoldRow>(row);
        left_->set_fraction(hold.duration > 0 ? std::clamp(hold.left / hold.duration, 0.0, 1.0) : 0);
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
        head->append(*wordsLabel("High risk", "risk"));
    append(*head);
    append(*makeTitle(card.summary));
    later_ = wordsLabel({}, "caption");
    append(*later_);
    if (card.refused)
        append(*wordsLabel(card.refusal(), "warning"));
    if (const auto attempt = InboxLogic::lastAttempt(card.card))
        append(*wordsLabel(*attempt, "warning"));
    if (card.card.deliveryNote)
        append(*wordsLabel(*card.card.deliveryNote, "warning"));
    setAccessibleDescription(
        *title_, card.card.deliveryNote.value_or("") +
                     (high ? "" : (card.card.deliveryNote ? "\n" : "") + card.card.body));
    if (!high && form_ == Form::open)
        addText(*this, card);
    if (!high && form_ == Form::folded)
        addFolded(card);
    if (!card.way.empty())
        append(*wordsLabel(card.way, "warning"));
    const bool answers = card.takesAnswer() && form_ == Form::open;
    const bool choices = !card.card.options.empty() || card.offers(PanelAction::Kind::answer) ||
                         card.offers(PanelAction::Kind::acceptDefaults);
    if (answers && !choices)
        addAnswer(*this, card);
    addActions(card);
    if (answers && choices)
        addAnswer(*this, card);
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
        addBatch(to, card);
    } else {
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
    if (const auto options = optionsOf(card); answers && !options.empty())
        all->append(*buttons(options, card));
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
    words->set_placeholder_text("Type an answer");
    auto* const send = Gtk::make_managed<Gtk::Button>("Send");
    send->set_sensitive(!isBlank(words->get_text()));
    words->signal_changed().connect([words, send] { send->set_sensitive(!isBlank(words->get_text())); });
    const auto sends = [this, words, asked = card.card] {
        if (!isBlank(words->get_text()))
            desk_->answer(asked, words->get_text());
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

/// What a press does at once: the chief action, in the open form the options, and to be left alone.
void CardView::addActions(const PanelCard& card) {
    auto actions = card.actions;
    if (form_ == Form::open && card.takesAnswer()) {
        const auto options = optionsOf(card);
        const auto snooze = std::ranges::find(actions, PanelAction::Kind::snooze, &PanelAction::kind);
        actions.insert(snooze, options.begin(), options.end());
    }
    if (!actions.empty())
        append(*buttons(actions, card));
    const auto noted = std::ranges::find_if(actions, [](const auto& action) { return !action.note.empty(); });
    if (noted != actions.end())
        append(*wordsLabel(noted->note, "caption"));
}

Gtk::Box* CardView::buttons(const std::vector<PanelAction>& actions, const PanelCard& card) {
    auto* const row = box(Gtk::Orientation::HORIZONTAL, 0);
    flow(*row);
    for (const auto& action : actions) {
        auto* const press = button(action, card.card);
        if (action.kind == PanelAction::Kind::snooze || action.kind == PanelAction::Kind::undo) {
            press->add_css_class("flat");
        } else if (action == card.actions.front()) {
            press->add_css_class("suggested-action");
        }
        row->append(*press);
    }
    return row;
}

void CardView::buildHold(const HoldRow& hold) {
    if (hold.committed)
        desk_->drafts.erase(hold.card.id);
    append(*wordsLabel(origin(hold.agent, hold.topic, ""), "caption"));
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
    left_ = Gtk::make_managed<Gtk::ProgressBar>();
    setAccessibleName(*left_, "Time to undo");
    append(*left_);
    append(*wordsLabel(hold.words, "caption"));
}

Gtk::Widget* CardView::button(const PanelAction& action, const Card& card) {
    auto* const label = wordsLabel(action.words, "");
    label->set_xalign(0.5);
    label->set_justify(Gtk::Justification::CENTER);
    auto* const made = Gtk::make_managed<Gtk::Button>();
    made->set_child(*label);
    setAccessibleName(*made, action.note.empty() ? action.words : action.words + ". " + action.note);
    made->signal_clicked().connect([this, action, card] { desk_->perform(action, card); });
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
