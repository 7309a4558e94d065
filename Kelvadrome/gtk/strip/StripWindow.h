#pragma once

#include "Kelvadrome/model/AgentLines.h"
#include "KelvadromeKit/attention/AgentStrip.h"

#include <giomm/simpleactiongroup.h>

#include <functional>
#include <gtkmm/box.h>
#include <gtkmm/button.h>
#include <gtkmm/label.h>
#include <gtkmm/popovermenu.h>
#include <gtkmm/window.h>
#include <gtkmm/windowhandle.h>
#include <optional>
#include <utility>

namespace kelvadrome {

/// The small floating row of lamps. Above all windows, on every desktop, never taking the focus; moved by its
/// background, where it then stays.
class AgentStripWindow final : public Gtk::Window {
public:
    struct Presses {
        std::function<void()> open;                        // on the headline
        std::function<void(const std::string& id)> agent;  // on a lamp, or an agent in the menu
        std::function<void()> hide;                        // in the menu
        std::function<std::vector<AgentLine>()> tell = {}; // the agents in words
    };
    explicit AgentStripWindow(Presses presses);
    ~AgentStripWindow() override { menu_.unparent(); }

    /// Shows the strip, or hides it.
    void update(const std::optional<AgentStrip>& strip);

private:
    void on_unmap() override;

    void build();
    void addLamp(const AgentStrip::Item& item, const std::vector<AgentLine>& lines);
    void openMenu(double x, double y);

    Presses presses_;
    Glib::RefPtr<Gio::SimpleActionGroup> actions_ = Gio::SimpleActionGroup::create();
    Gtk::PopoverMenu menu_;
    Gtk::WindowHandle handle_;
    Gtk::Button press_;
    Gtk::Box row_{Gtk::Orientation::HORIZONTAL, 8};
    std::optional<AgentStrip> shown_;
    std::optional<std::pair<int, int>> place_; // where it was when it was hidden
};

} // namespace kelvadrome
