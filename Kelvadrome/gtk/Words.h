#pragma once

#include <gtkmm/label.h>
#include <string>

namespace kelvadrome {

enum class Wrapping { wraps, elides };

/// A label at the line's beginning. `style` is a style class; empty for none.
inline Gtk::Label* wordsLabel(
    const std::string& text, const char* style, Wrapping wrapping = Wrapping::wraps) {
    auto* const label = Gtk::make_managed<Gtk::Label>(text);
    label->set_xalign(0);
    if (wrapping == Wrapping::wraps) {
        label->set_wrap(true);
        label->set_wrap_mode(Pango::WrapMode::WORD_CHAR);
    } else {
        label->set_ellipsize(Pango::EllipsizeMode::END);
    }
    if (*style)
        label->add_css_class(style);
    return label;
}

} // namespace kelvadrome
