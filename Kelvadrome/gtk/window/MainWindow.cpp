#include "Kelvadrome/gtk/window/MainWindow.h"

#include "Kelvadrome/gtk/parts/AccessibleName.h"
#include "Kelvadrome/gtk/window/Menu.h"
#include "KelvadromeKit/attention/InboxLogic.h"
#include "KelvadromeKit/support/Text.h"

#include <fmt/format.h>
#include <glibmm/markup.h>

#include <algorithm>
#include <gtkmm/box.h>
#include <gtkmm/eventcontrollerkey.h>
#include <gtkmm/stringlist.h>

namespace kelvadrome {

namespace {

constexpr int defaultWidth = 1180;
constexpr int defaultHeight = 780;
constexpr const char* sizeKey = "KDMainWindowFrame"; // "1180x780"

void name(Gtk::Widget& widget, const char* words) {
    widget.set_tooltip_text(words);
    setAccessibleName(widget, words);
}

void reveal(AdwFlap* flap, Gtk::Widget& side, bool revealed) {
    adw_flap_set_reveal_flap(flap, revealed);
    setAccessibleHidden(side, !revealed);
}

bool hasScopes(const AppState& state) {
    return state.scope != ScopeFilter::all || std::ranges::any_of(state.topics, [](const auto& topic) {
        return topic.second.scope.has_value();
    });
}

std::string subtitle(const AppState& state) {
    return state.connection.state == Connection::State::ready ? InboxLogic::cautionText(needsYouCount(state))
                                                              : std::string();
}

GtkWidget* bare(Gtk::Widget& widget) {
    return GTK_WIDGET(widget.gobj());
}

} // namespace

MainWindow::MainWindow(std::shared_ptr<AppModel> model, std::shared_ptr<Clock> clock, ContentPane::Page page,
    std::shared_ptr<Defaults> defaults)
    : model_(model), defaults_(std::move(defaults)), sidebar_(model),
      content_(model, std::move(clock), std::move(page)) {
    set_title("kelvadrome");
    set_name("main");
    set_hide_on_close(true);
    makeToolbar();
    makeBody();
    listenToKeys();
    restoreSize();
    signal_hide().connect([this] { rememberSize(); });
    show(model_->state());
}

void MainWindow::makeToolbar() {
    sidebarButton_.set_icon_name("sidebar-show-symbolic");
    name(sidebarButton_, "Show the sidebar");
    sidebarButton_.set_active(true);
    sidebarButton_.signal_toggled().connect(
        [this] { reveal(sidebarFlap_, side_, sidebarButton_.get_active()); });
    header_.pack_start(sidebarButton_);

    title_ = ADW_WINDOW_TITLE(adw_window_title_new("kelvadrome", ""));
    header_.set_title_widget(*Glib::wrap(GTK_WIDGET(title_)));

    menu_.set_icon_name("open-menu-symbolic");
    menu_.set_primary(true);
    menu_.set_menu_model(Menu::primary());
    name(menu_, "Menu");
    header_.pack_end(menu_);

    inspectorButton_.set_icon_name("sidebar-show-right-symbolic");
    name(inspectorButton_, "Show the inspector (Ctrl+Alt+I)");
    inspectorButton_.signal_toggled().connect([this] {
        if (!showing_)
            model_->setInspectorShown(inspectorButton_.get_active());
    });
    header_.pack_end(inspectorButton_);

    searchButton_.set_icon_name("system-search-symbolic");
    name(searchButton_, "Search cards, topics and receipts (Ctrl+F)");
    header_.pack_end(searchButton_);
    set_titlebar(header_);
    makeScope();
    makeSearch();
}

void MainWindow::makeScope() {
    std::vector<Glib::ustring> scopes;
    for (const auto scope : allScopeFilters)
        scopes.emplace_back(std::string(title(scope)));
    scope_.set_model(Gtk::StringList::create(scopes));
    scope_.set_tooltip_text("Which part of your work is shown");
    scope_.set_margin(6);
    scope_.property_selected().signal_changed().connect([this] {
        nameScope();
        if (!showing_ && scope_.get_selected() < allScopeFilters.size())
            model_->setScope(allScopeFilters[scope_.get_selected()]);
    });
    nameScope();
}

/// As it is typed: the field itself waits for a pause between two keys.
void MainWindow::makeSearch() {
    // GTK 4.8 has the property, but no function for it on this widget.
    g_object_set(search_.gobj(), "placeholder-text", "Search", nullptr);
    search_.set_width_chars(16);
    search_.set_max_width_chars(48);
    search_.set_hexpand(true);
    setAccessibleName(search_, "Search cards, topics and receipts");
    search_.signal_search_changed().connect([this] { searchChanged(); });
    search_.signal_activate().connect([this] {
        searchChanged();
        if (content_.showsNative())
            content_.child_focus(Gtk::DirectionType::TAB_FORWARD);
    });
    searchBar_.set_child(search_);
    searchBar_.connect_entry(search_);
    searchBar_.property_search_mode_enabled().signal_changed().connect([this] {
        searchButton_.set_active(searchBar_.get_search_mode());
        if (!searchBar_.get_search_mode())
            leaveSearch();
    });
    searchButton_.signal_toggled().connect(
        [this] { searchBar_.set_search_mode(searchButton_.get_active()); });
}

void MainWindow::searchChanged() {
    const std::string words = search_.get_text();
    if (words == model_->state().searchText)
        return;
    const bool native = content_.showsNative();
    content_.setFilter(words);
    model_->setSearchText(words);
    if (native)
        return;
    if (words.empty()) {
        model_->open(
            model_->state().section, std::nullopt); // from the results back to where they were asked for
    } else {
        model_->search();
    }
}

void MainWindow::leaveSearch() {
    search_.set_text({});
    searchChanged();
    if (content_.showsNative())
        content_.focusFirst();
}

/// The button inside the list is what has the focus.
void MainWindow::nameScope() {
    const auto chosen = scope_.get_selected();
    const auto words =
        "Scope: " + std::string(chosen < allScopeFilters.size() ? title(allScopeFilters[chosen]) : "");
    setAccessibleName(scope_, words);
    if (auto* const press = scope_.get_first_child())
        setAccessibleName(*press, words);
}

void MainWindow::makeBody() {
    inspectorFlap_ = ADW_FLAP(adw_flap_new());
    adw_flap_set_flap_position(inspectorFlap_, GTK_PACK_END);
    adw_flap_set_content(inspectorFlap_, bare(content_));
    adw_flap_set_flap(inspectorFlap_, bare(inspector_));
    adw_flap_set_separator(inspectorFlap_, gtk_separator_new(GTK_ORIENTATION_VERTICAL));
    adw_flap_set_locked(inspectorFlap_, TRUE);
    adw_flap_set_swipe_to_open(inspectorFlap_, FALSE);
    // In a narrow window the sides lie over the content, and go away by themselves.
    for (auto* const side : {static_cast<Gtk::Widget*>(&side_), static_cast<Gtk::Widget*>(&inspector_)})
        side->add_css_class("background");
    sidebar_.set_vexpand(true);
    side_.append(scope_);
    side_.append(sidebar_);
    g_signal_connect_swapped(inspectorFlap_, "notify::reveal-flap", G_CALLBACK(+[](MainWindow* self) {
        if (!self->showing_)
            self->model_->setInspectorShown(adw_flap_get_reveal_flap(self->inspectorFlap_));
    }),
        this);

    sidebar_.onSelected = [this] {
        show(model_->state());
        if (adw_flap_get_folded(sidebarFlap_))
            sidebarButton_.set_active(false); // it lies over what was chosen
    };
    sidebarFlap_ = ADW_FLAP(adw_flap_new());
    adw_flap_set_content(sidebarFlap_, GTK_WIDGET(inspectorFlap_));
    adw_flap_set_flap(sidebarFlap_, bare(side_));
    adw_flap_set_separator(sidebarFlap_, gtk_separator_new(GTK_ORIENTATION_VERTICAL));
    adw_flap_set_swipe_to_open(sidebarFlap_, FALSE);
    g_signal_connect_swapped(sidebarFlap_, "notify::reveal-flap", G_CALLBACK(+[](MainWindow* self) {
        if (!self->showing_)
            self->sidebarButton_.set_active(adw_flap_get_reveal_flap(self->sidebarFlap_));
    }),
        this);

    auto* const body = Gtk::make_managed<Gtk::Box>(Gtk::Orientation::VERTICAL);
    body->append(searchBar_);
    gtk_widget_set_vexpand(GTK_WIDGET(sidebarFlap_), TRUE);
    gtk_box_append(body->gobj(), GTK_WIDGET(sidebarFlap_));
    toasts_ = ADW_TOAST_OVERLAY(adw_toast_overlay_new());
    adw_toast_overlay_set_child(toasts_, bare(*body));
    set_child(*Glib::wrap(GTK_WIDGET(toasts_)));
}

/// "/" as on the page, and wherever nothing is typed.
void MainWindow::listenToKeys() {
    const auto keys = Gtk::EventControllerKey::create();
    keys->signal_key_pressed().connect(
        [this](guint key, guint, Gdk::ModifierType) {
            if (key != GDK_KEY_slash || GTK_IS_TEXT(gtk_window_get_focus(GTK_WINDOW(gobj()))))
                return false;
            focusSearch();
            return true;
        },
        false);
    add_controller(keys);
}

void MainWindow::show(const AppState& state) {
    showing_ = true;
    const bool chrome = !hidesNativeChrome(state.interfaceMode);
    sidebar_.show(state);
    if (chrome && state.inspectorShown)
        inspector_.show(state, sidebar_.selected());
    content_.show(state);
    reveal(sidebarFlap_, side_, chrome && sidebarButton_.get_active());
    reveal(inspectorFlap_, inspector_, chrome && state.inspectorShown);
    sidebarButton_.set_visible(chrome);
    scope_.set_visible(hasScopes(state));
    inspectorButton_.set_visible(chrome);
    inspectorButton_.set_active(state.inspectorShown);
    searchButton_.set_visible(chrome);
    if (!chrome && searchBar_.get_search_mode())
        searchBar_.set_search_mode(false);
    adw_window_title_set_title(title_, title(state.section).c_str());
    adw_window_title_set_subtitle(title_, subtitle(state).c_str());
    for (guint i = 0; i < allScopeFilters.size(); ++i) {
        if (allScopeFilters[i] == state.scope && scope_.get_selected() != i)
            scope_.set_selected(i);
    }
    showing_ = false;
    showNotice(state);
}

/// A notice is said once, and then is no longer there.
void MainWindow::showNotice(const AppState& state) {
    if (!state.notice)
        return;
    auto* const toast = adw_toast_new(Glib::Markup::escape_text(*state.notice).c_str());
    adw_toast_set_timeout(toast, 6);
    adw_toast_overlay_add_toast(toasts_, toast);
    model_->setNotice(std::nullopt);
}

void MainWindow::focusSearch() {
    if (hidesNativeChrome(model_->state().interfaceMode))
        return;
    searchBar_.set_search_mode(true);
    search_.grab_focus();
}

void MainWindow::restoreSize() {
    int width = defaultWidth, height = defaultHeight;
    const auto kept = defaults_->string(sizeKey).value_or("");
    const auto pieces = Text::split(kept, 'x');
    if (pieces.size() == 2) {
        width = std::max(360, std::atoi(std::string(pieces[0]).c_str()));
        height = std::max(320, std::atoi(std::string(pieces[1]).c_str()));
    }
    set_default_size(width, height);
}

void MainWindow::rememberSize() {
    int width = 0, height = 0;
    get_default_size(width, height); // follows the window; of a maximised one it is what it goes back to
    if (width > 0 && height > 0)
        defaults_->set(sizeKey, fmt::format("{}x{}", width, height));
}

} // namespace kelvadrome
