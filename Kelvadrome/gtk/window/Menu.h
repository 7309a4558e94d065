#pragma once

#include "Kelvadrome/model/Commands.h"

#include <giomm/menu.h>

#include <gtkmm/application.h>
#include <memory>
#include <vector>

namespace kelvadrome {

/// The application's menu, its keys and what they do.
class Menu {
public:
    /// Adds the actions to the application ("app.<id>") with their keys.
    Menu(Gtk::Application& application, std::shared_ptr<AppModel> model);

    /// The menu behind the button at the window's end.
    static Glib::RefPtr<Gio::Menu> primary();
    /// Brings the toggles in step, and "Finish Setup", which is there while setup isn't finished.
    void show(const AppState& state);

private:
    struct Toggle {
        Glib::RefPtr<Gio::SimpleAction> action;
        std::function<bool(const AppState&)> checked;
    };
    std::vector<Toggle> toggles_;
    Glib::RefPtr<Gio::SimpleAction> finishSetup_;
};

} // namespace kelvadrome
