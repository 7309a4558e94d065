#include "Kelvadrome/gtk/bar/BarPanel.h"

#include <algorithm>
#include <unistd.h>

namespace kelvadrome {

namespace {

bool isOurs(const FrontApplication& application) {
    return application.owner == ::getpid();
}

} // namespace

/// The window manager is asked first: while the global key is down the toolkit takes the focus for lost.
bool BarPanel::isActive() const {
    if (const auto front = desk_.front())
        return isOurs(*front);
    const auto windows = Gtk::Window::list_toplevels();
    return std::ranges::any_of(windows, [](Gtk::Window* window) { return window->is_active(); });
}

std::optional<FrontApplication> BarPanel::frontApplication() const {
    auto front = desk_.front();
    return front && !isOurs(*front) ? front : std::nullopt;
}

} // namespace kelvadrome
