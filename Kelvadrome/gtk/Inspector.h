#pragma once

#include "Kelvadrome/model/InspectorRows.h"

#include <gtkmm/box.h>
#include <gtkmm/scrolledwindow.h>
#include <vector>

namespace kelvadrome {

/// The daemon's state beside the page. Every value can be selected and copied.
class InspectorPane final : public Gtk::ScrolledWindow {
public:
    InspectorPane();

    void show(const AppState& state);

private:
    Gtk::Box groups_{Gtk::Orientation::VERTICAL, 18};
    std::vector<InspectorGroup> shown_;
};

} // namespace kelvadrome
