#pragma once

#include <gtkmm/box.h>

namespace kelvadrome {

/// Has the box put its widgets side by side, at their full widths, in as many rows as that takes.
void flow(Gtk::Box& box);

} // namespace kelvadrome
