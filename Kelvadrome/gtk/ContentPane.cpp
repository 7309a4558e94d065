#include "Kelvadrome/gtk/ContentPane.h"

#include <glibmm/markup.h>

#include <gtkmm/box.h>
#include <gtkmm/button.h>
#include <gtkmm/spinner.h>

namespace kelvadrome {

namespace {

AdwStatusPage* statusPage(const char* title, const char* description) {
    auto* const page = ADW_STATUS_PAGE(adw_status_page_new());
    adw_status_page_set_title(page, title);
    adw_status_page_set_description(page, description);
    return page;
}

} // namespace

ContentPane::ContentPane(std::shared_ptr<AppModel> model, Gtk::Widget& page) {
    set_hexpand(true);
    set_vexpand(true);
    set_transition_type(Gtk::StackTransitionType::CROSSFADE);

    auto* const starting =
        statusPage("Starting kelvadrome", "Opening the local daemon and your page session.");
    auto* const spinner = Gtk::make_managed<Gtk::Spinner>();
    spinner->set_size_request(32, 32);
    spinner->set_halign(Gtk::Align::CENTER);
    // A spinner that nobody sees would go on drawing.
    property_visible_child_name().signal_changed().connect(
        [this, spinner] { spinner->set_spinning(get_visible_child_name() == "starting"); });
    adw_status_page_set_child(starting, GTK_WIDGET(spinner->gobj()));

    failed_ = statusPage("kelvadrome is not running", "");
    adw_status_page_set_icon_name(failed_, "dialog-warning-symbolic");
    auto* const again = Gtk::make_managed<Gtk::Button>("Try again");
    again->add_css_class("pill");
    again->add_css_class("suggested-action");
    again->set_halign(Gtk::Align::CENTER);
    again->signal_clicked().connect([model] { model->retry(); });
    adw_status_page_set_child(failed_, GTK_WIDGET(again->gobj()));

    add(*Glib::wrap(GTK_WIDGET(starting)), "starting");
    add(*Glib::wrap(GTK_WIDGET(failed_)), "failed");
    add(page, "ready");
    spinner->set_spinning(true);
}

void ContentPane::show(const AppState& state) {
    switch (state.connection.state) {
    case Connection::State::starting:
        set_visible_child("starting");
        break;
    case Connection::State::failed: {
        // The description is markup to the widget, and the message is anything.
        adw_status_page_set_description(failed_, Glib::Markup::escape_text(state.connection.message).c_str());
        set_visible_child("failed");
        break;
    }
    case Connection::State::ready:
        set_visible_child("ready");
        break;
    }
}

} // namespace kelvadrome
