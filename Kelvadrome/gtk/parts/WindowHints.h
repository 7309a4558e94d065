#pragma once

#include <gtkmm/window.h>
#include <optional>
#include <string>
#include <utility>

/// What GTK 4 leaves to the display system, as far as that lets it be said: on X11 by the properties of EWMH.
/// A Wayland compositor places windows by itself, and nothing here applies.
namespace kelvadrome::WindowHints {

/// Out of the task bar, on every desktop, next to `place` (the tray item's, in screen pixels) or at the upper
/// end of the screen that shows `near`, or of the first. The window must be mapped.
void panel(
    Gtk::Window& window, std::optional<std::pair<int, int>> place, std::optional<std::pair<int, int>> near);

/// The window never takes the focus, not even when it appears. To be said when it is realised, which is
/// before it is mapped.
void refuseFocus(Gtk::Window& window);

/// The strip: above all others, on every desktop, out of the task bar, taking no focus; with its upper left
/// corner at `place` (in screen pixels) where a screen shows that, else 300 points from the work area's right
/// edge and 56 from its upper edge. To be set when it is mapped.
void strip(Gtk::Window& window, std::optional<std::pair<int, int>> place);

/// The command bar: above all others, on every desktop, out of the task bar, where `barPlace` says on the
/// screen that holds the pointer. The window must be mapped.
void bar(Gtk::Window& window);

/// Lets a window that is about to be shown take the focus as if a key had been pressed in one of ours: the
/// key was pressed elsewhere, and a window manager keeps old windows from taking the focus away from new
/// ones.
void asIfPressed(Gtk::Window& window);
/// Gives the focus to a window that is mapped, for the same reason.
void takeFocus(Gtk::Window& window);

/// Where the window's upper left corner is, in screen pixels; absent where the display doesn't tell.
std::optional<std::pair<int, int>> place(Gtk::Window& window);
/// Where its middle is.
std::optional<std::pair<int, int>> middle(Gtk::Window& window);

/// Square corners for a window without a frame where nothing blends windows: what is outside of round ones
/// would be black.
void squareWithoutCompositor(Gtk::Window& window);

/// Whether windows stay where `strip` and `panel` put them.
bool canPlace();

/// What another program gave so that the window presented next may take the focus; empty text is nothing. On
/// every display system.
void useActivationToken(const std::string& token);

/// Out of the task bar and the window list, or back in them. The window must be mapped.
void skipTaskbar(Gtk::Window& window, bool skip);

/// Gives the window this size, in points, around the middle where it stands, inside its screen's work area.
/// Where the display places windows by itself, it gets the size alone.
void resizeCentred(Gtk::Window& window, int width, int height);

} // namespace kelvadrome::WindowHints
