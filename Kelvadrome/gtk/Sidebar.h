#pragma once

#include "Kelvadrome/model/AppModel.h"

#include <gtkmm/box.h>
#include <gtkmm/label.h>
#include <gtkmm/listbox.h>
#include <gtkmm/scrolledwindow.h>
#include <string>
#include <variant>
#include <vector>

namespace kelvadrome {

/// What the sidebar can have selected.
struct SidebarItem {
    struct Section {
        NavSection section;
        bool operator==(const Section&) const = default;
    };
    struct Agent {
        std::string id; // agent, ":", session id
        bool operator==(const Agent&) const = default;
    };
    struct Autopilot {
        std::string id; // scope, ":", action class
        bool operator==(const Autopilot&) const = default;
    };
    using Value = std::variant<Section, Agent, Autopilot>;
};

/// The sections with their counts, the agents with their lamps, and what runs on autopilot.
class Sidebar final : public Gtk::ScrolledWindow {
public:
    explicit Sidebar(std::shared_ptr<AppModel> model);

    void show(const AppState& state);

private:
    struct Row {
        SidebarItem::Value item;
        std::string title;
        std::string detail; // below the title
        std::string count;  // at the end; empty for none
        std::string lamp;   // a style class; empty for none
        std::string group;  // the heading above the first row of a group

        bool operator==(const Row&) const = default;
    };

    static std::vector<Row> rows(const AppState& state);
    void rebuild();
    void select(const AppState& state);
    void activate(int index);

    std::shared_ptr<AppModel> model_;
    Gtk::ListBox list_;
    std::vector<Row> shown_;
};

} // namespace kelvadrome
