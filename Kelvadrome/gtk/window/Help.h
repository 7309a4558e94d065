#pragma once

#include <gtkmm/applicationwindow.h>
#include <string>

namespace kelvadrome::Help {

/// Gives the window its list of keys, which the action "win.show-help-overlay" opens.
void addShortcuts(Gtk::ApplicationWindow& window);
void showAbout(Gtk::Window& over, const std::string& version);

} // namespace kelvadrome::Help
