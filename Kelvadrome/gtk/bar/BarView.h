#pragma once

#include "Kelvadrome/gtk/bar/BarField.h"
#include "Kelvadrome/gtk/bar/Keycaps.h"
#include "Kelvadrome/gtk/bar/ShotStrip.h"
#include "Kelvadrome/model/CommandBarModel.h"
#include "Kelvadrome/model/CommandBarRows.h"

#include <gtkmm/box.h>
#include <gtkmm/button.h>
#include <gtkmm/image.h>
#include <gtkmm/label.h>
#include <gtkmm/listbox.h>
#include <gtkmm/scrolledwindow.h>
#include <memory>
#include <vector>

namespace kelvadrome {

/// The command bar: its field, the rows below it and the line beneath them. Shows what the model says and
/// decides nothing.
class BarView final : public Gtk::Box {
public:
    /// Which screenshots this machine can take: a button that could do nothing isn't shown.
    struct Capture {
        bool window = false, region = false;
    };

    BarView(std::shared_ptr<CommandBarModel> model, std::function<void()> close);

    void setCapture(Capture capture);
    /// The global key, for its keycaps; empty where there is none.
    void setKey(const std::string& label);

private:
    void addHead();
    void addAttach(Gtk::Button& press, const CommandBar::Button& button, bool region);
    void addFoot();
    void show();
    void showMicrophone();
    void showRows(std::vector<CommandBarRow> rows);
    void describe();
    bool scrollToHighlight();
    Gtk::Widget& rowWidget(const CommandBarRow& row);
    void rowPressed(std::size_t index);

    std::shared_ptr<CommandBarModel> model_;
    BarField field_;
    Gtk::Box head_{Gtk::Orientation::HORIZONTAL, 8};
    Gtk::Button microphone_;
    Gtk::Image noMicrophone_;
    Gtk::Button attachWindow_, attachRegion_;
    ShotStrip strip_;
    Gtk::ScrolledWindow scroller_;
    Gtk::ListBox list_;
    Gtk::Label footer_;
    Keycaps key_;
    std::vector<CommandBarRow> shown_;
    Subscription watching_; // the last: what it tells of is there
};

} // namespace kelvadrome
