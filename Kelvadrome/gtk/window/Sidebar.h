#pragma once

#include "Kelvadrome/model/AppModel.h"
#include "Kelvadrome/model/SidebarItem.h"

#include <functional>
#include <gtkmm/box.h>
#include <gtkmm/label.h>
#include <gtkmm/listbox.h>
#include <gtkmm/scrolledwindow.h>
#include <string>
#include <vector>

namespace kelvadrome {

/// The sections with their counts, the agents with their lamps, and what runs on autopilot.
class Sidebar final : public Gtk::ScrolledWindow {
public:
    explicit Sidebar(std::shared_ptr<AppModel> model);
    ~Sidebar() override;

    void show(const AppState& state);
    const SidebarItem::Value& selected() const { return selected_; }
    /// Called when the user has selected an agent or something on autopilot.
    std::function<void()> onSelected;

private:
    struct Row {
        SidebarItem::Value item;
        std::string title;
        std::string detail;        // below the title
        std::string count;         // at the end; empty for none
        std::string lamp;          // a style class; empty for none
        std::string group;         // the heading above the first row of a group
        std::string sentence = {}; // of an agent: all of it, its lamp in words

        bool operator==(const Row&) const = default;
    };

    static std::vector<Row> rows(const AppState& state);
    void rebuild();
    void fill(std::size_t index);
    void select(const AppState& state);
    void activate(int index);

    std::shared_ptr<AppModel> model_;
    Gtk::ListBox list_;
    std::vector<Row> shown_;
    std::vector<SidebarItem::Value> items_; // of the rows in the list
    SidebarItem::Value selected_; // by the user; the section's own row when it isn't in the section shown
};

} // namespace kelvadrome
