#include "Kelvadrome/gtk/CardView.h"

#include "Kelvadrome/gtk/AccessibleName.h"
#include "Kelvadrome/gtk/Focus.h"
#include "Kelvadrome/gtk/Words.h"

#include <fmt/chrono.h>

#include <algorithm>
#include <gtkmm/button.h>
#include <gtkmm/expander.h>
#include <gtkmm/flowbox.h>
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

Gtk::FlowBox* buttonRow() {
    auto* const row = Gtk::make_managed<Gtk::FlowBox>();
    row->set_selection_mode(Gtk::SelectionMode::NONE);
    row->set_column_spacing(6);
    row->set_row_spacing(6);
    row->set_max_children_per_line(3);
    // To a screen reader it is no table: only its buttons count.
    g_object_set(row->gobj(), "accessible-role", GTK_ACCESSIBLE_ROLE_GROUP, nullptr);
    return row;
}

void append(Gtk::FlowBox& row, Gtk::Widget& button) {
    row.append(button);
    button.get_parent()->set_focusable(false); // the button is what takes the focus
}

} // namespace

CardView::CardView(std::shared_ptr<CardDesk> desk, Form form)
    : Gtk::Box(Gtk::Orientation::VERTICAL, 6), desk_(std::move(desk)), form_(form) {
    g_object_set(gobj(), "accessible-role", GTK_ACCESSIBLE_ROLE_GROUP, nullptr);
    add_css_class("card");
    add_css_class("question");
    set_focusable(true);
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
    auto* const again = focused ? control(*focused) : nullptr;
    if (!again)
        return focusFirst();
    again->grab_focus();
    if (auto* const text = dynamic_cast<Gtk::Entry*>(again))
        text->set_position(-1); // selecting all, as taking the focus does, would have the next key replace it
}

void CardView::focusFirst() {
    const auto usable = std::ranges::find_if(controls_,
        [](const auto& entry) { return entry.second->is_sensitive() && entry.second->get_mapped(); });
    if (usable == controls_.end() || !usable->second->grab_focus())
        grab_focus();
}

void CardView::build(const PanelRow& row) {
    while (auto* const child = get_first_child())
        remove(*child);
    controls_.clear();
    origin_ = later_ = nullptr;
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
        origin_->set_text(origin(card->agent, card->topic, card->age));
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
    append(*wordsLabel(card.summary, "summary"));
    later_ = wordsLabel({}, "caption");
    append(*later_);
    setAccessibleName(
        *this, (high ? "High risk, " : "") + origin(card.agent, card.topic, card.age) + ", " + card.summary);
    setAccessibleDescription(*this, high ? std::string() : card.card.body);
    if (!high)
        append(*question(card));
    addActions(card);
}

/// The whole question with every way to answer it, as the form wants it.
Gtk::Box* CardView::question(const PanelCard& card) {
    auto* const all = box(Gtk::Orientation::VERTICAL, 6);
    if (card.summary != card.card.title)
        all->append(*wordsLabel(card.card.title, "body"));
    if (!card.card.body.empty()) {
        auto* const body = wordsLabel(card.card.body, "body");
        body->set_selectable(true);
        body->set_focusable(false);
        all->append(*body);
    }
    // The expander stands before what it holds.
    Gtk::Expander* fold = nullptr;
    if (form_ == Form::folded) {
        fold = Gtk::make_managed<Gtk::Expander>("Read and answer");
        keep("fold", *fold);
    }
    if (card.card.rows && !card.card.rows->empty()) {
        addBatch(*all, card);
    } else {
        addOptions(*all, card);
        addFreeAnswer(*all, card);
    }
    if (!fold)
        return all;
    fold->set_child(*all);
    fold->set_expanded(unfolded_);
    fold->property_expanded().signal_changed().connect([this, fold] { unfolded_ = fold->get_expanded(); });
    auto* const around = box(Gtk::Orientation::VERTICAL, 0);
    around->append(*fold);
    return around;
}

void CardView::addOptions(Gtk::Box& to, const PanelCard& card) {
    auto* const row = buttonRow();
    for (const auto& option : card.card.options) {
        const bool offered = std::ranges::any_of(card.actions, [&](const auto& action) {
            return action.kind == PanelAction::Kind::answer && action.answer == option;
        });
        if (!offered)
            kelvadrome::append(*row,
                *button({.kind = PanelAction::Kind::answer, .words = option, .answer = option}, card.card));
    }
    if (row->get_first_child())
        to.append(*row);
}

Gtk::Entry* CardView::entry(const std::string& key, const std::string& name) {
    auto* const made = Gtk::make_managed<Gtk::Entry>();
    made->set_hexpand(true);
    made->set_text(desk_->drafts[key]);
    setAccessibleName(*made, name);
    made->signal_changed().connect([this, made, key] { desk_->drafts[key] = made->get_text(); });
    keep(key, *made);
    return made;
}

void CardView::addFreeAnswer(Gtk::Box& to, const PanelCard& card) {
    auto* const row = box(Gtk::Orientation::HORIZONTAL, 6);
    auto* const words = entry(card.card.id, "Answer to: " + card.summary);
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
    keep("send", *send);
    row->append(*words);
    row->append(*send);
    to.append(*row);
}

void CardView::addBatch(Gtk::Box& to, const PanelCard& card) {
    for (const auto& question : *card.card.rows) {
        auto* const row = box(Gtk::Orientation::VERTICAL, 6);
        row->append(*wordsLabel(question.text, "body"));
        desk_->drafts.try_emplace(
            card.card.id + "/" + question.questionId, question.defaultAnswer.value_or(""));
        auto* const words = entry(card.card.id + "/" + question.questionId, "Answer to: " + question.text);
        words->set_placeholder_text(question.defaultAnswer.value_or("Type an answer"));
        words->signal_activate().connect([this, asked = card.card] { sendBatch(asked); });
        row->append(*words);
        to.append(*row);
    }
    auto* const send = Gtk::make_managed<Gtk::Button>("Send answers");
    send->set_halign(Gtk::Align::START);
    send->signal_clicked().connect([this, asked = card.card] { sendBatch(asked); });
    keep("send", *send);
    to.append(*send);
}

/// The first question that has no answer takes the focus instead.
void CardView::sendBatch(const Card& card) {
    std::map<std::string, std::string> answers;
    for (const auto& question : *card.rows) {
        const auto key = card.id + "/" + question.questionId;
        auto words = desk_->drafts[key];
        if (isBlank(words))
            words = question.defaultAnswer.value_or("");
        if (isBlank(words)) {
            if (auto* const missing = control(key)) {
                missing->add_css_class("error");
                missing->grab_focus();
            }
            return;
        }
        answers[question.questionId] = std::move(words);
    }
    desk_->answerBatch(card, std::move(answers));
}

void CardView::addActions(const PanelCard& card) {
    auto* const row = buttonRow();
    std::string note;
    for (const auto& action : card.actions) {
        const bool snooze = action.kind == PanelAction::Kind::snooze;
        if (snooze && card.later)
            continue; // it is already
        auto* const press = button(action, card.card);
        if (&action == &card.actions.front() && !snooze)
            press->add_css_class("suggested-action");
        if (snooze)
            press->add_css_class("flat");
        kelvadrome::append(*row, *press);
        if (note.empty())
            note = action.note;
    }
    append(*row);
    if (!note.empty())
        append(*wordsLabel(note, "caption"));
}

void CardView::buildHold(const HoldRow& hold) {
    if (hold.committed) {
        const auto id = hold.card.id;
        std::erase_if(desk_->drafts,
            [&](const auto& draft) { return draft.first == id || draft.first.starts_with(id + "/"); });
    }
    append(*wordsLabel(origin(hold.agent, hold.topic, ""), "caption"));
    auto* const row = box(Gtk::Orientation::HORIZONTAL, 6);
    if (hold.committed) {
        auto* const mark = Gtk::make_managed<Gtk::Image>();
        mark->set_from_icon_name("object-select-symbolic");
        row->append(*mark);
    }
    auto* const words = wordsLabel(hold.committed ? hold.words : hold.label, "summary");
    words->set_hexpand(true);
    row->append(*words);
    if (hold.undo)
        row->append(*button(*hold.undo, hold.card));
    append(*row);
    setAccessibleName(*this, hold.committed ? hold.words : hold.label + ". " + hold.words);
    setAccessibleDescription(*this, {});
    if (hold.committed)
        return;
    left_ = Gtk::make_managed<Gtk::ProgressBar>();
    setAccessibleName(*left_, "Time to undo");
    append(*left_);
    append(*wordsLabel(hold.words, "caption"));
}

Gtk::Widget* CardView::button(const PanelAction& action, const Card& card) {
    auto* const label = wordsLabel(action.words, "", Wrapping::elides);
    label->set_xalign(0.5);
    auto* const made = Gtk::make_managed<Gtk::Button>();
    made->set_child(*label);
    made->set_tooltip_text(action.words);
    setAccessibleName(*made, action.note.empty() ? action.words : action.words + ". " + action.note);
    made->signal_clicked().connect([this, action, card] { desk_->perform(action, card); });
    keep(action.words, *made);
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
