#pragma once

#include "Kelvadrome/model/CardRows.h"
#include "KelvadromeKit/support/Observation.h"

#include <functional>
#include <gtkmm/box.h>
#include <gtkmm/entry.h>
#include <gtkmm/label.h>
#include <gtkmm/progressbar.h>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kelvadrome {

/// What presses on a card do, and what is typed into cards. A text outlives the widget that it was typed
/// into, until its answer is sent or its card is gone.
struct CardDesk {
    std::function<void(const PanelAction& action, const Card& card)> perform;
    std::function<void(const Card& card, std::string words)> answer;
    std::function<void(const Card& card, std::map<std::string, std::string> answers)> answerBatch;
    /// An answer of high risk, to be looked at once more.
    std::function<void(const Card& card, std::string words)> reviewAnswer = {};
    /// By card id, then by question id; the one of a card that isn't a batch stands under the empty id.
    std::map<std::string, std::map<std::string, std::string>> drafts = {};
    Subscription watching = {}; // for cards that go
};

/// One card that asks, or one answer on its way. Its title takes the focus too, so that a screen reader tells
/// all of it at once; while it or a button has the focus, the keys of the page work here: 1 to 9, a, t, u, z
/// and x.
class CardView final : public Gtk::Box {
public:
    enum class Form {
        folded, // the whole question and the free answer behind "Read and answer"
        open,
    };

    CardView(std::shared_ptr<CardDesk> desk, Form form);

    /// Changes no more widgets than it must. The focus stays on what is there still, or goes to "Undo", or to
    /// the title.
    void show(const PanelRow& row);
    bool focusTitle() { return title_ && title_->grab_focus(); }

private:
    void build(const PanelRow& row);
    void buildCard(const PanelCard& card);
    void buildHold(const HoldRow& hold);
    void refresh(const PanelRow& row);
    void addText(Gtk::Box& to, const PanelCard& card);
    void addFolded(const PanelCard& card);
    void addAnswer(Gtk::Box& to, const PanelCard& card);
    void addFreeAnswer(Gtk::Box& to, const PanelCard& card);
    void addBatch(Gtk::Box& to, const PanelCard& card);
    void addActions(const PanelCard& card);
    void addDismissal(const PanelCard& card);
    void showDismissal(bool asks);
    bool press(guint key);
    bool pressOption(const PanelCard& card, std::size_t index);
    bool pressFirst(const PanelRow& row, std::initializer_list<PanelAction::Kind> kinds);
    bool writeAnswer();
    void choose(const PanelAction& action, const Card& card);
    void sendBatch(const Card& card);
    Gtk::Box* buttons(const std::vector<PanelAction>& actions, const PanelCard& card);
    Gtk::Widget* button(const PanelAction& action, const Card& card, const std::string& number = {});
    Gtk::Label* makeTitle(const std::string& words);
    Gtk::Entry* entry(const std::string& card, const std::string& question, const std::string& name);
    /// `key` begins with what kind of control it is: what follows may be an agent's words.
    void keep(const std::string& key, Gtk::Widget& widget) { controls_.emplace_back(key, &widget); }
    std::optional<std::string> focusedControl() const;
    Gtk::Widget* control(const std::string& key) const;

    std::shared_ptr<CardDesk> desk_;
    const Form form_;
    std::optional<PanelRow> shown_;
    bool unfolded_ = false;
    bool asksToDismiss_ = false; // the question whether to dismiss stands in the buttons' place
    std::vector<std::pair<std::string, Gtk::Widget*>> controls_; // in the order of their focus
    Gtk::Label* title_ = nullptr;
    Gtk::Label* origin_ = nullptr;         // of a card
    Gtk::Label* snoozedUntil_ = nullptr;   // of a card
    Gtk::ProgressBar* undoTime_ = nullptr; // of an answer that can be undone
};

} // namespace kelvadrome
