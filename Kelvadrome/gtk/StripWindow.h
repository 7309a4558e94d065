#pragma once

#include "KelvadromeKit/attention/AgentStrip.h"

#include <functional>
#include <gtkmm/box.h>
#include <gtkmm/button.h>
#include <gtkmm/label.h>
#include <gtkmm/window.h>
#include <gtkmm/windowhandle.h>

namespace kelvadrome {

/// The small floating row of lamps. Above all windows, on every desktop, never taking the focus; moved by its
/// background, where it then stays.
class AgentStripWindow final : public Gtk::Window {
public:
    /// `open` is a press on it.
    explicit AgentStripWindow(std::function<void()> open);

    /// Shows the strip, or hides it.
    void update(const std::optional<AgentStrip>& strip);

private:
    Gtk::WindowHandle handle_;
    Gtk::Button press_;
    Gtk::Box row_{Gtk::Orientation::HORIZONTAL, 8};
    std::optional<AgentStrip> shown_;
    bool placed_ = false;
};

} // namespace kelvadrome
