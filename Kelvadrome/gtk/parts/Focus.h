#pragma once

#include <gtkmm/widget.h>

namespace kelvadrome {

/// Whether keys go to this widget or to something in it, once its window is the active one.
inline bool holdsFocus(const Gtk::Widget& widget) {
    auto* const own = GTK_WIDGET(const_cast<Gtk::Widget&>(widget).gobj());
    auto* const root = gtk_widget_get_root(own);
    auto* const focus = root ? gtk_root_get_focus(root) : nullptr;
    return focus && (focus == own || gtk_widget_is_ancestor(focus, own));
}

} // namespace kelvadrome
