// How a card is answered: texts of one's own, presses and keys, and the question before it is dismissed.

#include "Kelvadrome/gtk/parts/AccessibleName.h"
#include "Kelvadrome/gtk/parts/CardControls.h"
#include "Kelvadrome/gtk/parts/CardView.h"
#include "Kelvadrome/gtk/parts/Words.h"
#include "KelvadromeKit/attention/DesignWords.h"

#include <algorithm>
#include <gtkmm/button.h>
#include <gtkmm/expander.h>

namespace kelvadrome {

namespace {

bool isBlank(const std::string& text) {
    return text.find_first_not_of(" \t") == std::string::npos;
}

} // namespace

/// Answers in one's own words.
void CardView::addAnswer(Gtk::Box& to, const PanelCard& card) {
    if (card.card.rows && !card.card.rows->empty()) {
        if (!card.highRisk) // the page alone reviews several answers at once
            addBatch(to, card);
    } else if (card.takesText()) {
        addFreeAnswer(to, card);
    }
}

Gtk::Entry* CardView::entry(const std::string& card, const std::string& question, const std::string& name) {
    auto* const made = Gtk::make_managed<Gtk::Entry>();
    made->set_hexpand(true);
    made->set_text(desk_->drafts[card][question]);
    setAccessibleName(*made, name);
    made->signal_changed().connect(
        [this, made, card, question] { desk_->drafts[card][question] = made->get_text(); });
    keep(CardControls::textKey(question), *made);
    return made;
}

void CardView::addFreeAnswer(Gtk::Box& to, const PanelCard& card) {
    auto* const row = CardControls::box(Gtk::Orientation::HORIZONTAL, 6);
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
    keep(CardControls::sendKey, *send);
    row->append(*words);
    row->append(*send);
    to.append(*row);
}

void CardView::addBatch(Gtk::Box& to, const PanelCard& card) {
    for (const auto& question : *card.card.rows) {
        auto* const row = CardControls::box(Gtk::Orientation::VERTICAL, 6);
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
    keep(CardControls::sendKey, *send);
    to.append(*send);
}

/// The first question that has no answer takes the focus instead.
void CardView::sendBatch(const Card& card) {
    std::map<std::string, std::string> answers;
    for (const auto& question : *card.rows) {
        auto* const field = dynamic_cast<Gtk::Entry*>(control(CardControls::textKey(question.questionId)));
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

void CardView::addDismissal(const PanelCard& card) {
    append(*wordsLabel(std::string(DesignWords::card::dismissAsks) + " The agent is told nothing.", ""));
    auto* const row = CardControls::box(Gtk::Orientation::HORIZONTAL, 6);
    auto* const keeps = Gtk::make_managed<Gtk::Button>(std::string(DesignWords::card::keep));
    setAccessibleDescription(*keeps, card.summary);
    keeps->signal_clicked().connect([this] { showDismissal(false); });
    keep(CardControls::keepKey, *keeps);
    row->append(*keeps);
    const PanelAction dismiss{
        .kind = PanelAction::Kind::dismiss, .words = std::string(DesignWords::action::dismiss.word)};
    auto* const dismisses = Gtk::make_managed<Gtk::Button>(dismiss.words);
    dismisses->add_css_class("destructive-action");
    setAccessibleDescription(*dismisses, card.summary);
    dismisses->signal_clicked().connect(
        [this, dismiss, asked = card.card] { desk_->perform(dismiss, asked); });
    keep(CardControls::pressKey(dismiss), *dismisses);
    row->append(*dismisses);
    append(*row);
}

void CardView::showDismissal(bool asks) {
    asksToDismiss_ = asks;
    build(PanelRow(*shown_));
    if (auto* const first = asks ? control(CardControls::keepKey) : nullptr) {
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
        choose(CardControls::optionsOf(card)[index], card.card);
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
        if (key == CardControls::foldKey)
            dynamic_cast<Gtk::Expander&>(*widget).set_expanded(true);
        if (auto* const text = dynamic_cast<Gtk::Entry*>(widget))
            return text->grab_focus();
    }
    return false;
}

} // namespace kelvadrome
