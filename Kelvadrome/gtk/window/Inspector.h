#pragma once

#include "Kelvadrome/model/InspectorRows.h"

#include <gtkmm/box.h>
#include <gtkmm/label.h>
#include <gtkmm/scrolledwindow.h>
#include <vector>

namespace kelvadrome {

/// The daemon's state beside the page, and what is selected in the sidebar. Every value can be selected and
/// copied.
class InspectorPane final : public Gtk::ScrolledWindow {
public:
    InspectorPane();

    void show(const AppState& state, const SidebarItem::Value& selected);

private:
    void rebuild();

    Gtk::Box groups_{Gtk::Orientation::VERTICAL, 18};
    std::vector<InspectorGroup> shown_;
    std::vector<std::vector<Gtk::Label*>> values_; // the rows' of each group
};

} // namespace kelvadrome
