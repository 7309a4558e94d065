#pragma once

#include <gtkmm/widget.h>
#include <string>

namespace kelvadrome {

/// What a screen reader says for a widget.
inline void setAccessibleName(Gtk::Widget& widget, const std::string& words) {
    Glib::Value<Glib::ustring> value;
    value.init(Glib::Value<Glib::ustring>::value_type());
    value.set(words);
    widget.update_property(Gtk::Accessible::Property::LABEL, value);
}

} // namespace kelvadrome
