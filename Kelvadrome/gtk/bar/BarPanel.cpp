#include "Kelvadrome/gtk/bar/BarPanel.h"

#include <algorithm>

namespace kelvadrome {

CommandPanelWindow& BarPanel::window() {
    if (!window_)
        window_ = makeWindow_();
    return *window_;
}

void BarPanel::orderOut() {
    if (window_)
        window_->set_visible(false);
}

bool BarPanel::isActive() const {
    const auto windows = Gtk::Window::list_toplevels();
    return std::ranges::any_of(windows, [](Gtk::Window* window) { return window->is_active(); });
}

std::optional<FrontApplication> BarPanel::frontApplication() const {
    if (isActive())
        return std::nullopt;
    return desk_.front();
}

} // namespace kelvadrome
