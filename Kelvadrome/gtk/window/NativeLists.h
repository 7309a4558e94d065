#pragma once

#include "Kelvadrome/model/AppModel.h"
#include "Kelvadrome/model/ListRows.h"

#include <functional>
#include <gtkmm/box.h>
#include <gtkmm/label.h>
#include <gtkmm/listbox.h>
#include <gtkmm/scrolledwindow.h>
#include <memory>
#include <string>
#include <vector>

namespace kelvadrome {

/// Topics or receipts as widgets, for a screen reader. A press on a row goes to what it is about.
class NativeLists final : public Gtk::ScrolledWindow {
public:
    NativeLists(std::shared_ptr<AppModel> model, std::shared_ptr<Clock> clock);

    static bool offers(NavSection section) {
        return section == NavSection::topics || section == NavSection::receipts;
    }
    void show();
    /// Shows those rows alone in which all these words stand; empty for all.
    void setFilter(std::string words);

private:
    struct Row {
        std::string heading; // above it, when another group begins
        std::string title;
        std::string detail;
        std::string path; // of the page, for a press; empty when there is nowhere to go

        bool operator==(const Row&) const = default;
    };

    std::vector<Row> rows() const;
    void build();

    std::shared_ptr<AppModel> model_;
    std::shared_ptr<Clock> clock_;
    std::string filter_;
    std::vector<Row> shown_;
    Gtk::Box column_{Gtk::Orientation::VERTICAL, 12};
    Gtk::Label title_;
    Gtk::Label empty_;
    Gtk::ListBox list_;
};

} // namespace kelvadrome
