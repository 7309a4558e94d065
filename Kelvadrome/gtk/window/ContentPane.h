#pragma once

#include "Kelvadrome/gtk/window/NativeInbox.h"
#include "Kelvadrome/gtk/window/NativeLists.h"
#include "Kelvadrome/model/AppModel.h"

#include <adwaita.h>
#include <functional>
#include <gtkmm/button.h>
#include <gtkmm/stack.h>
#include <memory>
#include <optional>
#include <string>

namespace kelvadrome {

/// The main pane: the page while the daemon is there, otherwise words about it. The inbox can be shown
/// without the page: when the user wants it so, and when the page can't be shown.
class ContentPane final : public Gtk::Stack {
public:
    struct Page {
        Gtk::Widget& widget;                                 // of the web pane
        std::function<std::optional<std::string>()> trouble; // why the page can't be shown, if so
        std::function<bool()> drawn = [] { return true; };   // whether the page has said that it stands
    };

    ContentPane(std::shared_ptr<AppModel> model, std::shared_ptr<Clock> clock, Page page);

    /// To be called too when the page's trouble comes or goes.
    void show(const AppState& state);
    /// What is searched for, as it is typed: the native lists show what has these words. Empty ends that.
    void setFilter(const std::string& words);
    /// Gives the focus to the first card of the native list.
    void focusFirst() { native_.focusFirst(); }
    /// Whether widgets of our own stand in the page's place.
    bool showsNative() const { return get_visible_child() != &page_; }

private:
    void addStarting();
    void addFailed();
    void addPage(Gtk::Widget& page);
    void review(const Card& card);
    const char* readyPage(const AppState& state);
    void showSecondLook(const AppState& state);

    std::shared_ptr<AppModel> model_;
    std::shared_ptr<Clock> clock_;
    std::function<std::optional<std::string>()> trouble_;
    std::function<bool()> drawn_;
    bool pageStands_ = false; // it has drawn since the daemon was connected to
    NativeInbox native_;
    NativeLists lists_;
    AdwMessageDialog* secondLook_ = nullptr; // while it is open
    Gtk::Box page_{Gtk::Orientation::VERTICAL};
    Gtk::Box back_;                   // above the page while the native list makes way, for a card to review
    AdwStatusPage* failed_ = nullptr; // the stack's
    Gtk::Label pressed_;              // while starting: the answers whose end isn't known
    Gtk::Label silent_;               // while starting: why the login item's daemon doesn't answer
    Gtk::Button startHere_;           // beside that
};

} // namespace kelvadrome
