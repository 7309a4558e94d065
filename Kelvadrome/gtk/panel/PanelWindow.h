#pragma once

#include "Kelvadrome/gtk/panel/PanelView.h"

#include <gtkmm/scrolledwindow.h>
#include <gtkmm/window.h>

namespace kelvadrome {

/// The panel as a small window of its own, at the tray item where the display allows it. Goes away on Escape
/// and when it loses the focus.
class PanelWindow final : public Gtk::Window {
public:
    PanelWindow(std::shared_ptr<AppModel> model, std::shared_ptr<Clock> clock, PanelView::Effects effects);

    /// Opens the panel, or closes the open one. `x` and `y` are the item's place on the screen, when known.
    void toggle(std::optional<std::pair<int, int>> place);
    void open(std::optional<std::pair<int, int>> place);
    void refresh() { view_.show(); }

private:
    void leave();

    Gtk::ScrolledWindow scroller_;
    PanelView view_;
    std::optional<std::pair<int, int>> place_, near_;
    int placedHeight_ = 0;          // for which it was placed last
    Gtk::Window* before_ = nullptr; // ours that had the focus; may be gone
};

} // namespace kelvadrome
