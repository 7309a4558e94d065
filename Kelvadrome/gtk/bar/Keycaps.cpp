#include "Kelvadrome/gtk/bar/Keycaps.h"

#include "Kelvadrome/gtk/parts/AccessibleName.h"
#include "KelvadromeKit/bar/HotkeySpec.h"

#include <gtkmm/label.h>

namespace kelvadrome {

Keycaps::Keycaps(const std::string& label) : Gtk::Box(Gtk::Orientation::HORIZONTAL, 4) {
    set_valign(Gtk::Align::CENTER);
    show(label);
}

void Keycaps::show(const std::string& label) {
    if (std::exchange(shown_, label) == label)
        return;
    while (auto* const cap = get_first_child())
        remove(*cap);
    for (const auto& cap : keycaps(label)) {
        auto* const face = Gtk::make_managed<Gtk::Label>(cap);
        face->add_css_class("keycap");
        setAccessibleHidden(*face, true);
        append(*face);
    }
    setAccessibleName(*this, label);
}

} // namespace kelvadrome
