#pragma once

#include "Kelvadrome/gtk/parts/Waking.h"
#include "Kelvadrome/gtk/window/CardList.h"
#include "Kelvadrome/model/AppModel.h"
#include "Kelvadrome/model/InboxList.h"

#include <functional>
#include <gtkmm/box.h>
#include <gtkmm/label.h>
#include <gtkmm/scrolledwindow.h>
#include <memory>
#include <optional>
#include <string>

namespace kelvadrome {

/// All open cards as widgets, for a screen reader, which can't read the page, and for when there is no page.
/// Sleeps while it isn't seen.
class NativeInbox final : public Gtk::Box {
public:
    /// `review` shows the page on a card; `tryAgain` loads the page.
    NativeInbox(std::shared_ptr<AppModel> model, std::shared_ptr<Clock> clock,
        std::function<void(const Card& card)> review, std::function<void()> tryAgain);

    void show();
    /// Why the list is there in the page's place, when the user didn't ask for it.
    void setTrouble(const std::optional<std::string>& words);
    /// Gives the focus to the first card, or to the list.
    void focusFirst();
    /// Shows those cards alone in which all these words stand; empty for all.
    void setFilter(std::string words);

private:
    void makeTrouble(std::function<void()> tryAgain);
    void makeElsewhere();
    void goToCard();

    std::shared_ptr<AppModel> model_;
    std::shared_ptr<Clock> clock_;
    std::optional<InboxList> shown_;
    std::string filter_;
    Waking waking_;

    Gtk::ScrolledWindow scroller_;
    Gtk::Box column_{Gtk::Orientation::VERTICAL, 12};
    Gtk::Box trouble_{Gtk::Orientation::HORIZONTAL, 12};
    Gtk::Label troubleWords_;
    Gtk::Label header_;
    Gtk::Label relief_;
    Gtk::Box errorBar_{Gtk::Orientation::HORIZONTAL, 12}; // above what scrolls, so that it is always seen
    Gtk::Label error_;
    Gtk::Box elsewhere_{Gtk::Orientation::HORIZONTAL, 12};
    Gtk::Label elsewhereWords_;
    Gtk::Label pressed_; // a line for each answer whose card isn't among these
    CardList cards_;
    Gtk::Label clear_;
};

} // namespace kelvadrome
