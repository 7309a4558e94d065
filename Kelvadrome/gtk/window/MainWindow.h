#pragma once

#include "Kelvadrome/gtk/window/ContentPane.h"
#include "Kelvadrome/gtk/window/Inspector.h"
#include "Kelvadrome/gtk/window/Sidebar.h"
#include "Kelvadrome/model/AppModel.h"

#include <adwaita.h>
#include <gtkmm/applicationwindow.h>
#include <gtkmm/dropdown.h>
#include <gtkmm/headerbar.h>
#include <gtkmm/menubutton.h>
#include <gtkmm/searchentry.h>
#include <gtkmm/togglebutton.h>
#include <memory>
#include <optional>

namespace kelvadrome {

/// The window "main": sidebar, page and inspector under a toolbar. In expert mode the page brings its own
/// sidebar and the window is the page. Closing hides it; the application stays.
class MainWindow final : public Gtk::ApplicationWindow {
public:
    /// Remembers its size in `defaults`.
    MainWindow(std::shared_ptr<AppModel> model, std::shared_ptr<Clock> clock, ContentPane::Page page,
        std::shared_ptr<Defaults> defaults);

    void show(const AppState& state);
    void focusSearch();
    /// In the defaults; hiding the window does so too.
    void rememberSize();

private:
    void makeToolbar();
    void nameScope();
    void makeBody();
    void restoreSize();
    void showNotice(const AppState& state);

    std::shared_ptr<AppModel> model_;
    std::shared_ptr<Defaults> defaults_;
    Gtk::HeaderBar header_;
    Gtk::ToggleButton sidebarButton_;
    Gtk::SearchEntry search_;
    Gtk::DropDown scope_;
    Gtk::ToggleButton simple_{"Simple"};
    Gtk::ToggleButton expert_{"Expert"};
    Gtk::ToggleButton nativeButton_;
    Gtk::ToggleButton inspectorButton_;
    Gtk::MenuButton menu_;
    Sidebar sidebar_;
    InspectorPane inspector_;
    ContentPane content_;
    AdwToastOverlay* toasts_ = nullptr; // the window's
    AdwFlap* left_ = nullptr;           // the window's
    AdwFlap* right_ = nullptr;          // the window's
    bool showing_ = false;              // the state is being shown: what changes is no press
};

} // namespace kelvadrome
