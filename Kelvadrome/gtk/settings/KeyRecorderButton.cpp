#include "Kelvadrome/gtk/settings/KeyRecorderButton.h"

#include "Kelvadrome/gtk/web/GLibPointers.h"
#include "KelvadromeKit/bar/HotkeySpec.h"

#include <memory>
#include <optional>
#include <span>

namespace kelvadrome {

namespace {

/// A key's name in a label; absent for a key that a global one can't have.
std::optional<std::string> nameOf(guint symbol) {
    switch (symbol) {
    case GDK_KEY_Return:
    case GDK_KEY_KP_Enter:
        return "Return";
    case GDK_KEY_Tab:
    case GDK_KEY_ISO_Left_Tab:
        return "Tab";
    case GDK_KEY_space:
        return "Space";
    case GDK_KEY_Escape:
        return "Escape";
    default:
        break;
    }
    if (symbol >= GDK_KEY_F1 && symbol <= GDK_KEY_F12)
        return "F" + std::to_string(symbol - GDK_KEY_F1 + 1);
    const auto letter = gdk_keyval_to_unicode(gdk_keyval_to_upper(symbol));
    const bool plain = (letter >= 'A' && letter <= 'Z') || (letter >= '0' && letter <= '9');
    return plain ? std::optional(std::string(1, static_cast<char>(letter))) : std::nullopt;
}

/// By what any of the keyboard's layouts has on the key: with a layout of other letters the Latin ones are
/// still what a label names.
std::optional<std::string> nameOfKey(GdkDisplay* display, guint keycode) {
    guint* symbols = nullptr;
    int count = 0;
    if (!gdk_display_map_keycode(display, keycode, nullptr, &symbols, &count))
        return std::nullopt;
    const std::unique_ptr<guint, GFree> owned(symbols);
    for (const auto symbol : std::span(symbols, static_cast<std::size_t>(count))) {
        if (auto name = nameOf(symbol))
            return name;
    }
    return std::nullopt;
}

/// Control, Shift and their like themselves: the keys that matter are still to come.
bool isModifier(GdkDisplay* display, guint keycode, GdkModifierType modifiers) {
    guint symbol = 0;
    if (!gdk_display_translate_key(display, keycode, modifiers, 0, &symbol, nullptr, nullptr, nullptr))
        return false;
    return (symbol >= GDK_KEY_Shift_L && symbol <= GDK_KEY_Hyper_R) || symbol == GDK_KEY_ISO_Level3_Shift ||
           symbol == GDK_KEY_Num_Lock || symbol == GDK_KEY_Scroll_Lock;
}

std::string labelOf(std::string key, GdkModifierType modifiers) {
    HotkeySpec spec{.keyCode = 0, .modifiers = 0, .key = std::move(key)};
    if (modifiers & GDK_CONTROL_MASK)
        spec.modifiers |= HotkeySpec::controlKey;
    if (modifiers & GDK_ALT_MASK)
        spec.modifiers |= HotkeySpec::optionKey;
    if (modifiers & GDK_SHIFT_MASK)
        spec.modifiers |= HotkeySpec::shiftKey;
    if (modifiers & (GDK_SUPER_MASK | GDK_META_MASK))
        spec.modifiers |= HotkeySpec::cmdKey;
    return HotkeySpec::fromLabel(spec.label()) ? spec.label() : "";
}

} // namespace

KeyRecorderButton::KeyRecorderButton(std::function<void()> pressed, std::function<void(std::string)> recorded)
    : pressed_(std::move(pressed)), recorded_(std::move(recorded)), button_(gtk_button_new()) {
    g_object_ref_sink(button_);
    g_signal_connect_swapped(
        button_, "clicked", G_CALLBACK(+[](KeyRecorderButton* self) { self->pressed_(); }), this);
    keys_ = gtk_event_controller_key_new();
    gtk_event_controller_set_propagation_phase(keys_, GTK_PHASE_CAPTURE);
    g_signal_connect(keys_, "key-pressed",
        G_CALLBACK(
            +[](GtkEventControllerKey*, guint, guint keycode, GdkModifierType modifiers, gpointer self) {
                return static_cast<gboolean>(
                    static_cast<KeyRecorderButton*>(self)->keyPressed(keycode, modifiers));
            }),
        this);
    gtk_widget_add_controller(button_, keys_);
    focus_ = gtk_event_controller_focus_new();
    g_signal_connect_swapped(focus_, "leave", G_CALLBACK(+[](KeyRecorderButton* self) {
        if (self->recording_)
            self->pressed_();
    }),
        this);
    gtk_widget_add_controller(button_, focus_);
}

KeyRecorderButton::~KeyRecorderButton() {
    if (recording_)
        holdShortcuts(false);
    recording_ = false;
    for (auto* const controller : {keys_, focus_})
        gtk_widget_remove_controller(button_, controller);
    g_signal_handlers_disconnect_by_data(button_, this);
    g_object_unref(button_);
}

void KeyRecorderButton::show(bool recording) {
    gtk_button_set_label(GTK_BUTTON(button_), recording ? "Press the Keys" : "Change");
    if (recording == recording_)
        return;
    recording_ = recording;
    holdShortcuts(recording);
    if (recording)
        gtk_widget_grab_focus(button_);
}

/// The desktop's own shortcuts would be lost to it otherwise, where it lets programs have them.
void KeyRecorderButton::holdShortcuts(bool hold) {
    auto* const root = gtk_widget_get_root(button_);
    auto* const surface = root ? gtk_native_get_surface(GTK_NATIVE(root)) : nullptr;
    if (!surface || !GDK_IS_TOPLEVEL(surface))
        return;
    if (hold)
        gdk_toplevel_inhibit_system_shortcuts(GDK_TOPLEVEL(surface), nullptr);
    else
        gdk_toplevel_restore_system_shortcuts(GDK_TOPLEVEL(surface));
}

bool KeyRecorderButton::keyPressed(guint keycode, GdkModifierType modifiers) {
    if (!recording_)
        return false;
    auto* const display = gtk_widget_get_display(button_);
    if (isModifier(display, keycode, modifiers))
        return true;
    const auto name = nameOfKey(display, keycode);
    const auto held = modifiers & (GDK_CONTROL_MASK | GDK_ALT_MASK | GDK_SUPER_MASK | GDK_META_MASK);
    if (name == "Escape" && !held)
        pressed_();
    else
        recorded_(name ? labelOf(*name, modifiers) : "");
    return true;
}

} // namespace kelvadrome
