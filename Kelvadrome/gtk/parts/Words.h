#pragma once

#include <gtkmm/label.h>
#include <gtkmm/tooltip.h>
#include <string>

namespace kelvadrome {

enum class Wrapping { wraps, elides };

/// Lets a label wrap, from the line's beginning. It asks for no more than a narrow column's width, so that
/// what scrolls around it knows the height that it needs there; where there is more room it takes that.
inline void wrap(Gtk::Label& label) {
    label.set_xalign(0);
    label.set_wrap(true);
    label.set_wrap_mode(Pango::WrapMode::WORD_CHAR);
    label.set_max_width_chars(34);
    // A hyphen at a break inside a path or a command would read as one of its characters.
    Pango::AttrList attributes;
    auto plain = Pango::Attribute::create_attr_insert_hyphens(false);
    attributes.insert(plain);
    label.set_attributes(attributes);
}

/// Lets a label end in "…", and tell all of its words to the pointer then.
inline void elide(Gtk::Label& label) {
    label.set_xalign(0);
    label.set_ellipsize(Pango::EllipsizeMode::END);
    label.set_has_tooltip(true);
    label.signal_query_tooltip().connect(
        [&label](int, int, bool, const Glib::RefPtr<Gtk::Tooltip>& tooltip) {
            tooltip->set_text(label.get_text());
            return label.get_layout()->is_ellipsized();
        },
        true);
}

/// A label at the line's beginning. `style` is a style class; empty for none.
inline Gtk::Label* wordsLabel(
    const std::string& text, const char* style, Wrapping wrapping = Wrapping::wraps) {
    auto* const label = Gtk::make_managed<Gtk::Label>(text);
    if (wrapping == Wrapping::wraps) {
        wrap(*label);
    } else {
        elide(*label);
    }
    if (*style)
        label->add_css_class(style);
    return label;
}

} // namespace kelvadrome
