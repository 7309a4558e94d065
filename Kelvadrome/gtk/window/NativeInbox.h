#pragma once

#include "Kelvadrome/gtk/parts/Waking.h"
#include "Kelvadrome/gtk/window/CardList.h"
#include "Kelvadrome/model/AppModel.h"
#include "Kelvadrome/model/InboxList.h"

#include <functional>
#include <gtkmm/label.h>
#include <gtkmm/scrolledwindow.h>
#include <memory>
#include <optional>
#include <string>

namespace kelvadrome {

/// All open cards as widgets, for a screen reader, which can't read the page, and for when there is no page.
/// Sleeps while it isn't seen.
class NativeInbox final : public Gtk::ScrolledWindow {
public:
    /// `review` shows the page on a card; `tryAgain` loads the page.
    NativeInbox(std::shared_ptr<AppModel> model, std::shared_ptr<Clock> clock,
        std::function<void(const Card& card)> review, std::function<void()> tryAgain);

    void show();
    /// Why the list is there in the page's place, when the user didn't ask for it.
    void setTrouble(const std::optional<std::string>& words);
    /// Gives the focus to the first card, or to the list.
    void focusFirst();

private:
    void makeTrouble(std::function<void()> tryAgain);
    void makeElsewhere();

    std::shared_ptr<AppModel> model_;
    std::shared_ptr<Clock> clock_;
    std::optional<InboxList> shown_;
    Waking waking_;

    Gtk::Box column_{Gtk::Orientation::VERTICAL, 12};
    Gtk::Box trouble_{Gtk::Orientation::HORIZONTAL, 12};
    Gtk::Label troubleWords_;
    Gtk::Label header_;
    Gtk::Label relief_;
    Gtk::Label error_;
    Gtk::Box elsewhere_{Gtk::Orientation::HORIZONTAL, 12};
    Gtk::Label elsewhereWords_;
    Gtk::Label pressed_; // a line for each answer whose card isn't among these
    CardList cards_;
    Gtk::Label clear_;
};

} // namespace kelvadrome
