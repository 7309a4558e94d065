#pragma once

#include "Kelvadrome/gtk/bar/BarView.h"

#include <gtkmm/window.h>
#include <memory>

namespace kelvadrome {

/// The window of the command bar: without a frame, above all others, on every desktop, on the screen that
/// holds the pointer.
class CommandPanelWindow final : public Gtk::Window {
public:
    CommandPanelWindow(std::unique_ptr<BarView> view, std::function<void()> onEscape);

    BarView& view() { return *view_; }

    /// In sight, the focus where it is.
    void orderFront();
    /// In front of all, with the focus, also when a key of another program's brought us here.
    void activate();

private:
    std::function<void()> onEscape_;
    std::unique_ptr<BarView> view_;
    bool focusing_ = false; // once it is mapped
};

} // namespace kelvadrome
