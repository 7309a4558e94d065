#pragma once

#include <gtkmm/label.h>
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
}

/// A label at the line's beginning. `style` is a style class; empty for none.
inline Gtk::Label* wordsLabel(
    const std::string& text, const char* style, Wrapping wrapping = Wrapping::wraps) {
    auto* const label = Gtk::make_managed<Gtk::Label>(text);
    label->set_xalign(0);
    if (wrapping == Wrapping::wraps) {
        wrap(*label);
    } else {
        label->set_ellipsize(Pango::EllipsizeMode::END);
    }
    if (*style)
        label->add_css_class(style);
    return label;
}

} // namespace kelvadrome
