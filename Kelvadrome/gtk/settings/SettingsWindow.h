#pragma once

#include "Kelvadrome/gtk/settings/SettingsRowView.h"
#include "Kelvadrome/model/SettingsModel.h"

#include <array>
#include <gtkmm/window.h>
#include <memory>
#include <optional>
#include <vector>

namespace kelvadrome {

/// The settings, a page for each tab. Closing hides the window, Escape too; hidden, it draws nothing.
class SettingsWindow {
public:
    explicit SettingsWindow(std::shared_ptr<SettingsModel> model);
    ~SettingsWindow();
    SettingsWindow(const SettingsWindow&) = delete;
    SettingsWindow& operator=(const SettingsWindow&) = delete;

    /// Brings the window up, in front of `parent` while that is visible; it outlives this. Without a tab it
    /// stays on the last.
    void open(std::optional<SettingsTab> tab, Gtk::Window* parent);
    Gtk::Window& window() { return *window_; }

private:
    struct Group {
        AdwPreferencesGroup* widget = nullptr; // the page's
        std::vector<std::unique_ptr<SettingsRowView>> rows;
    };
    struct Page {
        AdwPreferencesPage* widget = nullptr; // the window's
        std::vector<Group> groups;
        std::vector<SettingsGroup> shown;
    };

    void makePages();
    Page makePage(SettingsTab tab);
    void followVisits(AdwPreferencesPage* page, SettingsTab tab);
    void show();
    void touched();
    void fill(Group& group, const std::vector<SettingsRow>& rows);

    std::shared_ptr<SettingsModel> model_;
    SettingsRowView::Presses presses_;
    AdwPreferencesWindow* adw_; // window_ as libadwaita knows it
    std::unique_ptr<Gtk::Window> window_;
    Gtk::Window* parent_ = nullptr; // in front of which it was opened
    std::array<Page, allSettingsTabs.size()> pages_;
    Subscription watching_;
};

} // namespace kelvadrome
