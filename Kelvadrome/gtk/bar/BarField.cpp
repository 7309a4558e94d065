#include "Kelvadrome/gtk/bar/BarField.h"

#include "Kelvadrome/gtk/parts/AccessibleName.h"
#include "Kelvadrome/model/CommandBarRows.h"
#include "KelvadromeKit/bar/BarText.h"

#include <glibmm/main.h>

#include <gtkmm/eventcontrollerkey.h>

namespace kelvadrome {

BarField::BarField(Gestures gestures) : gestures_(std::move(gestures)) {
    add_css_class("bar-field");
    set_has_frame(false);
    set_hexpand(true);
    set_placeholder_text(CommandBar::placeholder);
    setAccessibleName(*this, CommandBar::placeholder);
    property_text().signal_changed().connect([this] { edited(); });
    signal_activate().connect([this] { gestures_.submit(); });
    // After the text's own handling, so that an input method gets its keys first.
    const auto keys = Gtk::EventControllerKey::create();
    keys->signal_key_pressed().connect(
        [this](guint key, guint, Gdk::ModifierType) { return pressed(key); }, false);
    add_controller(keys);
}

bool BarField::pressed(guint key) {
    switch (key) {
    case GDK_KEY_Up:
    case GDK_KEY_KP_Up:
        gestures_.move(-1);
        return true;
    case GDK_KEY_Down:
    case GDK_KEY_KP_Down:
        gestures_.move(1);
        return true;
    case GDK_KEY_Escape:
        gestures_.escape();
        return true;
    default:
        return false;
    }
}

void BarField::edited() {
    if (setting_)
        return;
    const std::string text = get_text();
    auto line = BarText::sanitize(text);
    if (line != text) {
        const Glib::ustring before = Glib::ustring(text).substr(0, get_position());
        setting_ = true;
        set_text(line);
        set_position(static_cast<int>(Glib::ustring(BarText::sanitize(before.raw())).size()));
        setting_ = false;
    }
    gestures_.edit(std::move(line));
}

void BarField::show(const std::string& text, std::int64_t focusToken) {
    if (std::string(get_text()) != text) {
        setting_ = true;
        set_text(text);
        set_position(-1);
        setting_ = false;
    }
    if (std::exchange(focusToken_, focusToken) == focusToken)
        return;
    // Ends with this widget, as every slot on a method of its own.
    Glib::signal_idle().connect(sigc::mem_fun(*this, &BarField::takeFocus));
}

bool BarField::takeFocus() {
    grab_focus_without_selecting();
    set_position(-1);
    return false;
}

} // namespace kelvadrome
