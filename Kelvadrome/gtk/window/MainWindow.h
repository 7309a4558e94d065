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
#include <gtkmm/searchbar.h>
#include <gtkmm/searchentry.h>
#include <gtkmm/togglebutton.h>
#include <memory>
#include <optional>

namespace kelvadrome {

/// The window "main": sidebar, page and inspector under a header bar. Where it is narrow the sides lie over
/// the content. In expert mode the page brings its own sidebar and search, and the window is the page.
/// Closing hides it; the application stays.
class MainWindow final : public Gtk::ApplicationWindow {
public:
    /// Remembers its size in `defaults`.
    MainWindow(std::shared_ptr<AppModel> model, std::shared_ptr<Clock> clock, ContentPane::Page page,
        std::shared_ptr<Defaults> defaults);

    void show(const AppState& state);
    /// Opens the search field; in expert mode the page has its own.
    void focusSearch();
    /// In the defaults; hiding the window does so too.
    void rememberSize();

private:
    void makeToolbar();
    void makeScope();
    void nameScope();
    void makeSearch();
    void searchChanged();
    void leaveSearch();
    void makeBody();
    void listenToKeys();
    void restoreSize();
    void showNotice(const AppState& state);

    std::shared_ptr<AppModel> model_;
    std::shared_ptr<Defaults> defaults_;
    Gtk::HeaderBar header_;
    Gtk::ToggleButton sidebarButton_;
    AdwWindowTitle* title_ = nullptr; // the header's
    Gtk::ToggleButton searchButton_;
    Gtk::SearchBar searchBar_;
    Gtk::SearchEntry search_;
    Gtk::DropDown scope_;
    Gtk::ToggleButton inspectorButton_;
    Gtk::MenuButton menu_;
    Gtk::Box side_{Gtk::Orientation::VERTICAL}; // the scope, when there are any, and the sidebar
    Sidebar sidebar_;
    InspectorPane inspector_;
    ContentPane content_;
    AdwToastOverlay* toasts_ = nullptr; // the window's
    AdwFlap* sidebarFlap_ = nullptr;    // the window's
    AdwFlap* inspectorFlap_ = nullptr;  // the window's
    bool showing_ = false;              // the state is being shown: what changes is no press
};

} // namespace kelvadrome
