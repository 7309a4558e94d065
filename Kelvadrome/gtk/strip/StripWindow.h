#pragma once

#include "KelvadromeKit/attention/AgentStrip.h"

#include <functional>
#include <gtkmm/box.h>
#include <gtkmm/button.h>
#include <gtkmm/label.h>
#include <gtkmm/window.h>
#include <gtkmm/windowhandle.h>
#include <optional>
#include <utility>

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
    void on_unmap() override;

    Gtk::WindowHandle handle_;
    Gtk::Button press_;
    Gtk::Box row_{Gtk::Orientation::HORIZONTAL, 8};
    std::optional<AgentStrip> shown_;
    std::optional<std::pair<int, int>> place_; // where it was when it was hidden
};

} // namespace kelvadrome
