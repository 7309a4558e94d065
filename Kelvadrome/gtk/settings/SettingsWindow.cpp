#include "Kelvadrome/gtk/settings/SettingsWindow.h"

#include "Kelvadrome/gtk/parts/WordmarkView.h"

#include <glibmm/markup.h>

#include <algorithm>

namespace kelvadrome {

namespace {

constexpr int width = 780;
constexpr int height = 720; // a pairing code and what is pressed about it fit in
constexpr double wordmarkSize = 56;

constexpr std::array<const char*, allSettingsTabs.size()> icons = {"preferences-system-symbolic",
    "utilities-terminal-symbolic", "audio-input-microphone-symbolic", "phone-symbolic",
    "media-playlist-consecutive-symbolic", "channel-secure-symbolic", "help-about-symbolic"};

/// The window's own button and field show an icon alone.
void nameSearch(GtkWidget* within) {
    for (auto* child = gtk_widget_get_first_child(within); child;
         child = gtk_widget_get_next_sibling(child)) {
        if (GTK_IS_SEARCH_ENTRY(child) || GTK_IS_TOGGLE_BUTTON(child)) {
            gtk_accessible_update_property(
                GTK_ACCESSIBLE(child), GTK_ACCESSIBLE_PROPERTY_LABEL, "Search settings", -1);
        } else {
            nameSearch(child);
        }
    }
}

/// A field that goes while it has the focus isn't told that it loses it.
void releaseFocus(GtkWidget* within) {
    auto* const root = gtk_widget_get_root(within);
    auto* const focused = root ? gtk_root_get_focus(root) : nullptr;
    if (focused && gtk_widget_is_ancestor(focused, within))
        gtk_root_set_focus(root, nullptr);
}

} // namespace

SettingsWindow::SettingsWindow(std::shared_ptr<SettingsModel> model)
    : model_(std::move(model)), adw_(ADW_PREFERENCES_WINDOW(adw_preferences_window_new())),
      window_(Glib::wrap(GTK_WINDOW(adw_))) {
    presses_.toggle = [this](const std::string& id, bool on) {
        touched();
        model_->toggle(id, on);
    };
    presses_.choose = [this](const std::string& id, std::size_t index) {
        touched();
        model_->choose(id, index);
    };
    presses_.press = [this](const std::string& id) { model_->press(id); };
    presses_.edit = [this](const std::string& id, const std::string& text) {
        touched();
        model_->edit(id, text);
    };
    presses_.submit = [this](const std::string& id) { model_->submit(id); };
    presses_.record = [this](const std::string& id, const std::string& keys) { model_->record(id, keys); };
    window_->set_name("settings");
    window_->set_title("Settings");
    window_->set_default_size(width, height);
    window_->set_hide_on_close(true);
    window_->set_modal(false); // what it opens, such as the page, must be usable
    adw_preferences_window_set_search_enabled(adw_, TRUE);
    nameSearch(GTK_WIDGET(adw_)); // before there are pages
    model_->onNotice = [this](const std::string& words) {
        adw_preferences_window_add_toast(adw_, adw_toast_new(Glib::Markup::escape_text(words).c_str()));
    };
    // Coming back to it, from a terminal or the system's own settings, looks anew.
    window_->property_is_active().signal_changed().connect([this] {
        if (window_->property_is_active().get_value())
            model_->lookAgain();
    });
    window_->signal_hide().connect([this] {
        model_->lookAway();
        // Some window managers don't give the focus back to a window that isn't in their list.
        if (parent_ && parent_->get_visible())
            parent_->present();
    });
    watching_ = model_->observe([this] { show(); });
}

SettingsWindow::~SettingsWindow() {
    watching_.cancel();
    model_->onNotice = nullptr;
    parent_ = nullptr;
}

SettingsWindow::Page SettingsWindow::makePage(SettingsTab tab) {
    Page page{ADW_PREFERENCES_PAGE(adw_preferences_page_new()), {}, {}};
    adw_preferences_page_set_name(page.widget, std::string(rawValue(tab)).c_str());
    adw_preferences_page_set_title(page.widget, std::string(title(tab)).c_str());
    adw_preferences_page_set_icon_name(page.widget, icons[static_cast<std::size_t>(tab)]);
    if (tab == SettingsTab::about) {
        auto* const group = ADW_PREFERENCES_GROUP(adw_preferences_group_new());
        auto* const mark = Gtk::make_managed<WordmarkView>(wordmarkSize);
        mark->set_margin_top(12);
        mark->set_margin_bottom(12);
        adw_preferences_group_add(group, GTK_WIDGET(mark->gobj()));
        adw_preferences_page_add(page.widget, group);
    }
    page.shown = model_->pane(tab);
    for (const auto& shown : page.shown) {
        Group group{ADW_PREFERENCES_GROUP(adw_preferences_group_new()), {}};
        adw_preferences_group_set_title(group.widget, Glib::Markup::escape_text(shown.title).c_str());
        adw_preferences_group_set_description(group.widget, Glib::Markup::escape_text(shown.detail).c_str());
        adw_preferences_page_add(page.widget, group.widget);
        fill(group, shown.rows);
        page.groups.push_back(std::move(group));
    }
    adw_preferences_window_add(adw_, page.widget);
    followVisits(page.widget, tab);
    return page;
}

/// When they are first looked at: their rows are many, and the application starts sooner without them.
void SettingsWindow::makePages() {
    if (pages_.front().widget)
        return;
    for (const auto tab : allSettingsTabs)
        pages_[static_cast<std::size_t>(tab)] = makePage(tab);
}

/// A page is mapped exactly while it is the one that shows.
void SettingsWindow::followVisits(AdwPreferencesPage* page, SettingsTab tab) {
    auto* const widget = Glib::wrap(GTK_WIDGET(page));
    widget->signal_map().connect([this, tab] { model_->lookAt(tab, true); });
    widget->signal_unmap().connect([this, tab] { model_->lookAt(tab, false); });
}

void SettingsWindow::open(std::optional<SettingsTab> tab, Gtk::Window* parent) {
    makePages();
    if (!window_->get_visible()) {
        parent_ = parent;
        gtk_window_set_transient_for(
            GTK_WINDOW(adw_), parent && parent->get_visible() ? parent->gobj() : nullptr);
        window_->set_visible(true);
        show();
    }
    if (tab)
        adw_preferences_window_set_visible_page(adw_, pages_[static_cast<std::size_t>(*tab)].widget);
    window_->present();
}

/// A widget shows what the user made of it, which the model may not follow.
void SettingsWindow::touched() {
    for (auto& page : pages_)
        page.shown.clear();
}

void SettingsWindow::show() {
    if (!window_->get_visible())
        return;
    for (const auto tab : allSettingsTabs) {
        auto& page = pages_[static_cast<std::size_t>(tab)];
        auto fresh = model_->pane(tab);
        if (fresh == page.shown)
            continue;
        for (std::size_t i = 0; i < fresh.size(); ++i)
            fill(page.groups.at(i), fresh[i].rows);
        page.shown = std::move(fresh);
    }
}

/// Puts the rows in order; a widget that fits its row stays, and with it the focus.
void SettingsWindow::fill(Group& group, const std::vector<SettingsRow>& rows) {
    std::size_t kept = 0;
    while (kept < std::min(group.rows.size(), rows.size()) && group.rows[kept]->fits(rows[kept])) {
        group.rows[kept]->show(rows[kept]);
        ++kept;
    }
    while (group.rows.size() > kept) {
        releaseFocus(group.rows.back()->widget());
        adw_preferences_group_remove(group.widget, group.rows.back()->widget());
        group.rows.pop_back();
    }
    for (std::size_t i = kept; i < rows.size(); ++i) {
        group.rows.push_back(std::make_unique<SettingsRowView>(rows[i], presses_));
        adw_preferences_group_add(group.widget, group.rows.back()->widget());
        const auto* const field = std::get_if<SettingsRow::Field>(&rows[i].control);
        if (field && field->takesFocus && gtk_widget_get_mapped(GTK_WIDGET(group.widget)))
            group.rows.back()->takeFocus();
    }
}

} // namespace kelvadrome
