#pragma once

#include <gtkmm/stack.h>
#include <gtkmm/widget.h>
#include <string>

namespace kelvadrome {

inline void setAccessibleText(
    Gtk::Widget& widget, Gtk::Accessible::Property property, const std::string& words) {
    Glib::Value<Glib::ustring> value;
    value.init(Glib::Value<Glib::ustring>::value_type());
    value.set(words);
    widget.update_property(property, value);
}

/// What a screen reader says for a widget.
inline void setAccessibleName(Gtk::Widget& widget, const std::string& words) {
    setAccessibleText(widget, Gtk::Accessible::Property::LABEL, words);
}

/// What it says after that.
inline void setAccessibleDescription(Gtk::Widget& widget, const std::string& words) {
    setAccessibleText(widget, Gtk::Accessible::Property::DESCRIPTION, words);
}

/// For what a container keeps without showing it, of which a screen reader of GTK 4.8 isn't told otherwise.
inline void setAccessibleHidden(Gtk::Widget& widget, bool hidden) {
    Glib::Value<bool> value;
    value.init(Glib::Value<bool>::value_type());
    value.set(hidden);
    widget.update_state(Gtk::Accessible::State::HIDDEN, value);
}

/// From here on a screen reader finds the page of the stack that shows, and no other.
inline void hideOtherPages(Gtk::Stack& stack) {
    const auto follow = [&stack] {
        for (auto* page = stack.get_first_child(); page; page = page->get_next_sibling())
            setAccessibleHidden(*page, page != stack.get_visible_child());
    };
    stack.property_visible_child().signal_changed().connect(follow);
    follow();
}

} // namespace kelvadrome
