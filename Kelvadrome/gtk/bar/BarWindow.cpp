#include "Kelvadrome/gtk/bar/BarWindow.h"

#include "Kelvadrome/gtk/parts/WindowHints.h"
#include "Kelvadrome/gtk/web/QuietWindow.h"
#include "KelvadromeKit/bar/BarPlace.h"

#include <gtkmm/eventcontrollerkey.h>

namespace kelvadrome {

CommandPanelWindow::CommandPanelWindow(std::unique_ptr<BarView> view, std::function<void()> onEscape)
    : onEscape_(std::move(onEscape)), view_(std::move(view)) {
    set_title(CommandBar::title);
    set_name("bar");
    set_decorated(false);
    set_resizable(false);
    add_css_class("bar-window");
    WindowHints::squareWithoutCompositor(*this);
    view_->set_size_request(static_cast<int>(barWidth), -1);
    set_child(*view_);
    // For when the field doesn't hold the focus; where it does, it has taken the key already.
    const auto keys = Gtk::EventControllerKey::create();
    keys->signal_key_pressed().connect(
        [this](guint key, guint, Gdk::ModifierType) {
            if (key != GDK_KEY_Escape)
                return false;
            onEscape_();
            return true;
        },
        false);
    add_controller(keys);
    signal_close_request().connect(
        [this] {
            onEscape_();
            return true;
        },
        false);
    signal_map().connect([this] {
        WindowHints::bar(*this);
        if (std::exchange(focusing_, false))
            WindowHints::takeFocus(*this);
    });
}

void CommandPanelWindow::orderFront() {
    if (get_visible())
        return WindowHints::bar(*this);
    showWithoutFocus(*this);
}

void CommandPanelWindow::activate() {
    if (get_mapped()) {
        WindowHints::bar(*this);
        return WindowHints::takeFocus(*this);
    }
    focusing_ = true;
    WindowHints::asIfPressed(*this);
    set_visible(true);
}

} // namespace kelvadrome
