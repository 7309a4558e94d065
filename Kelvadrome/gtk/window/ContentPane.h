#pragma once

#include "Kelvadrome/gtk/window/NativeInbox.h"
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
    };

    ContentPane(std::shared_ptr<AppModel> model, std::shared_ptr<Clock> clock, Page page);

    /// To be called too when the page's trouble comes or goes.
    void show(const AppState& state);
    /// The page has the results of a search: the native list makes way for them.
    void showResults();

private:
    void addStarting();
    void addFailed();
    void addPage(Gtk::Widget& page);
    void review(const Card& card);
    bool wantsNative(const AppState& state);

    std::shared_ptr<AppModel> model_;
    std::shared_ptr<Clock> clock_;
    std::function<std::optional<std::string>()> trouble_;
    NativeInbox native_;
    Gtk::Box page_{Gtk::Orientation::VERTICAL};
    Gtk::Box back_;                   // above the page while the native list makes way, for a card to review
    AdwStatusPage* failed_ = nullptr; // the stack's
    Gtk::Label pressed_;              // while starting: the answers whose end isn't known
    Gtk::Label silent_;               // while starting: why the login item's daemon doesn't answer
    Gtk::Button startHere_;           // beside that
    bool searched_ = false;           // or it makes way for results
};

} // namespace kelvadrome
