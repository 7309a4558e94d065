#pragma once

#include <gtkmm/window.h>

namespace kelvadrome {

/// Shows a window that is hidden, and leaves the focus where it is.
void showWithoutFocus(Gtk::Window& window);

} // namespace kelvadrome
