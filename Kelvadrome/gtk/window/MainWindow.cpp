#include "Kelvadrome/gtk/window/MainWindow.h"

#include "Kelvadrome/gtk/parts/AccessibleName.h"
#include "Kelvadrome/gtk/window/Menu.h"
#include "KelvadromeKit/support/Text.h"

#include <fmt/format.h>
#include <glibmm/markup.h>

#include <array>
#include <gtkmm/box.h>
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
    restoreSize();
    signal_hide().connect([this] { rememberSize(); });
    show(model_->state());
}

void MainWindow::makeToolbar() {
    sidebarButton_.set_icon_name("sidebar-show-symbolic");
    name(sidebarButton_, "Show the sidebar");
    sidebarButton_.set_active(true);
    sidebarButton_.signal_toggled().connect([this] { reveal(left_, sidebar_, sidebarButton_.get_active()); });
    header_.pack_start(sidebarButton_);

    std::vector<Glib::ustring> scopes;
    for (const auto scope : allScopeFilters)
        scopes.emplace_back(std::string(title(scope)));
    scope_.set_model(Gtk::StringList::create(scopes));
    scope_.set_tooltip_text("Which part of your work is shown");
    scope_.property_selected().signal_changed().connect([this] {
        nameScope();
        if (!showing_ && scope_.get_selected() < allScopeFilters.size())
            model_->setScope(allScopeFilters[scope_.get_selected()]);
    });
    nameScope();
    header_.pack_start(scope_);

    // GTK 4.8 has the property, but no function for it on this widget.
    g_object_set(search_.gobj(), "placeholder-text", "Search", nullptr);
    search_.set_width_chars(10);
    search_.set_max_width_chars(28);
    name(search_, "Search cards, topics and receipts");
    search_.signal_activate().connect([this] {
        model_->setSearchText(search_.get_text());
        model_->search();
        content_.showResults();
    });
    search_.signal_search_changed().connect([this] {
        if (search_.get_text().empty())
            model_->setSearchText({});
    });
    header_.set_title_widget(search_);

    menu_.set_icon_name("open-menu-symbolic");
    menu_.set_primary(true);
    menu_.set_menu_model(Menu::primary());
    name(menu_, "Menu");
    header_.pack_end(menu_);

    inspectorButton_.set_icon_name("dialog-information-symbolic");
    name(inspectorButton_, "Show the inspector (Command Option I)");
    inspectorButton_.signal_toggled().connect([this] {
        if (!showing_)
            model_->setInspectorShown(inspectorButton_.get_active());
    });
    header_.pack_end(inspectorButton_);

    nativeButton_.set_icon_name("view-list-symbolic");
    name(nativeButton_, "Native inbox: the cards without the page, as a screen reader can read them");
    nativeButton_.signal_toggled().connect([this] {
        if (!showing_)
            model_->setNativeInbox(nativeButton_.get_active());
    });
    header_.pack_end(nativeButton_);

    auto* const modes = Gtk::make_managed<Gtk::Box>();
    modes->add_css_class("linked");
    expert_.set_group(simple_);
    for (auto* const button : {&simple_, &expert_})
        modes->append(*button);
    name(simple_, "Simple: the sidebar of this window");
    name(expert_, "Expert: the page alone");
    expert_.signal_toggled().connect([this] {
        if (!showing_) {
            model_->setInterfaceMode(expert_.get_active() ? InterfaceMode::expert : InterfaceMode::simple,
                InterfaceModeSource::toolbar);
        }
    });
    header_.pack_end(*modes);
    set_titlebar(header_);
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
    right_ = ADW_FLAP(adw_flap_new());
    adw_flap_set_flap_position(right_, GTK_PACK_END);
    adw_flap_set_content(right_, bare(content_));
    adw_flap_set_flap(right_, bare(inspector_));
    adw_flap_set_separator(right_, gtk_separator_new(GTK_ORIENTATION_VERTICAL));
    adw_flap_set_locked(right_, TRUE);
    adw_flap_set_swipe_to_open(right_, FALSE);
    // In a narrow window the sides lie over the content, and go away by themselves.
    for (auto* const side : {static_cast<Gtk::Widget*>(&sidebar_), static_cast<Gtk::Widget*>(&inspector_)})
        side->add_css_class("background");
    g_signal_connect_swapped(right_, "notify::reveal-flap", G_CALLBACK(+[](MainWindow* self) {
        if (!self->showing_)
            self->model_->setInspectorShown(adw_flap_get_reveal_flap(self->right_));
    }),
        this);

    sidebar_.onSelected = [this] { show(model_->state()); };
    left_ = ADW_FLAP(adw_flap_new());
    adw_flap_set_content(left_, GTK_WIDGET(right_));
    adw_flap_set_flap(left_, bare(sidebar_));
    adw_flap_set_separator(left_, gtk_separator_new(GTK_ORIENTATION_VERTICAL));
    adw_flap_set_swipe_to_open(left_, FALSE);
    g_signal_connect_swapped(left_, "notify::reveal-flap", G_CALLBACK(+[](MainWindow* self) {
        if (!self->showing_)
            self->sidebarButton_.set_active(adw_flap_get_reveal_flap(self->left_));
    }),
        this);

    toasts_ = ADW_TOAST_OVERLAY(adw_toast_overlay_new());
    adw_toast_overlay_set_child(toasts_, GTK_WIDGET(left_));
    set_child(*Glib::wrap(GTK_WIDGET(toasts_)));
}

void MainWindow::show(const AppState& state) {
    showing_ = true;
    const bool chrome = !hidesNativeChrome(state.interfaceMode);
    sidebar_.show(state);
    if (chrome && state.inspectorShown)
        inspector_.show(state, sidebar_.selected());
    content_.show(state);
    reveal(left_, sidebar_, chrome && sidebarButton_.get_active());
    reveal(right_, inspector_, chrome && state.inspectorShown);
    sidebarButton_.set_visible(chrome);
    scope_.set_visible(chrome);
    inspectorButton_.set_visible(chrome);
    inspectorButton_.set_active(state.inspectorShown);
    nativeButton_.set_active(state.nativeInbox);
    (chrome ? simple_ : expert_).set_active(true);
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
