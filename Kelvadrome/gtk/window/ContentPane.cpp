#include "Kelvadrome/gtk/window/ContentPane.h"

#include "Kelvadrome/gtk/parts/AccessibleName.h"
#include "Kelvadrome/gtk/parts/Words.h"
#include "KelvadromeKit/attention/DesignWords.h"

#include <fmt/format.h>
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

ContentPane::ContentPane(std::shared_ptr<AppModel> model, std::shared_ptr<Clock> clock, Page page)
    : model_(model), clock_(clock), trouble_(std::move(page.trouble)), drawn_(std::move(page.drawn)),
      native_(
          model, clock, [this](const Card& card) { review(card); }, [model] { model->web().reload(); }),
      lists_(model, std::move(clock)) {
    set_hexpand(true);
    set_vexpand(true);
    set_transition_type(Gtk::StackTransitionType::CROSSFADE);
    addStarting();
    addFailed();
    addPage(page.widget);
    add(native_, "native");
    add(lists_, "lists");
    hideOtherPages(*this);
}

void ContentPane::addStarting() {
    auto* const starting =
        statusPage("Starting kelvadrome", "Opening the local daemon and your page session.");
    auto* const spinner = Gtk::make_managed<Gtk::Spinner>();
    spinner->set_size_request(32, 32);
    spinner->set_halign(Gtk::Align::CENTER);
    // A spinner that nobody sees would go on drawing.
    property_visible_child_name().signal_changed().connect(
        [this, spinner] { spinner->set_spinning(get_visible_child_name() == "starting"); });
    auto* const below = Gtk::make_managed<Gtk::Box>(Gtk::Orientation::VERTICAL, 24);
    wrap(pressed_);
    pressed_.add_css_class("warning");
    pressed_.set_halign(Gtk::Align::CENTER);
    wrap(silent_);
    startHere_.set_label("Start it here");
    startHere_.add_css_class("pill");
    startHere_.set_halign(Gtk::Align::CENTER);
    startHere_.signal_clicked().connect([model = model_] { model->retry(); });
    below->append(*spinner);
    below->append(silent_);
    below->append(startHere_);
    below->append(pressed_);
    adw_status_page_set_child(starting, GTK_WIDGET(below->gobj()));
    add(*Glib::wrap(GTK_WIDGET(starting)), "starting");
    spinner->set_spinning(true);
}

void ContentPane::addFailed() {
    failed_ = statusPage("kelvadrome is not running", "");
    adw_status_page_set_icon_name(failed_, "dialog-warning-symbolic");
    auto* const again = Gtk::make_managed<Gtk::Button>("Try again");
    again->add_css_class("pill");
    again->add_css_class("suggested-action");
    again->set_halign(Gtk::Align::CENTER);
    again->signal_clicked().connect([model = model_] { model->retry(); });
    adw_status_page_set_child(failed_, GTK_WIDGET(again->gobj()));
    add(*Glib::wrap(GTK_WIDGET(failed_)), "failed");
}

void ContentPane::addPage(Gtk::Widget& page) {
    auto* const press = Gtk::make_managed<Gtk::Button>("Back to the list");
    press->signal_clicked().connect([this] {
        model_->endReview();
        show(model_->state());
        native_.focusFirst();
    });
    back_.append(*press);
    back_.set_margin(6);
    back_.set_visible(false);
    page.set_vexpand(true);
    page_.append(back_);
    page_.append(page);
    add(page_, "ready");
}

/// A card of high risk is answered on the page alone; the list comes back when it is over.
void ContentPane::review(const Card& card) {
    model_->review(card);
    show(model_->state());
    page_.child_focus(Gtk::DirectionType::TAB_FORWARD);
}

void ContentPane::setFilter(const std::string& words) {
    native_.setFilter(words);
    lists_.setFilter(words);
}

/// Until the page stands, the list of cards is there in its place.
const char* ContentPane::readyPage(const AppState& state) {
    const auto trouble = trouble_();
    native_.setTrouble(trouble);
    pageStands_ = pageStands_ || drawn_();
    if (state.section == NavSection::inbox) {
        const bool wanted = state.nativeInbox && !state.reviewed;
        return wanted || trouble || !pageStands_ ? "native" : "ready";
    }
    return state.nativeInbox && NativeLists::offers(state.section) ? "lists" : "ready";
}

/// An answer of high risk, as it would go out, before it does.
void ContentPane::showSecondLook(const AppState& state) {
    if (!state.secondLook) {
        if (secondLook_)
            gtk_window_close(GTK_WINDOW(secondLook_));
        return;
    }
    if (secondLook_)
        return;
    const auto& look = *state.secondLook;
    const auto facts =
        fmt::format("To: {}\nQuestion: {}\nAnswer: “{}”\n\nThis is marked as high risk. After you "
                    "confirm it you have {:g} seconds to undo.",
            look.to, look.card.title, look.reviewed.answer, look.reviewed.holdSeconds);
    auto* const root = gtk_widget_get_root(GTK_WIDGET(gobj()));
    const std::string title(DesignWords::card::review);
    secondLook_ = ADW_MESSAGE_DIALOG(adw_message_dialog_new(GTK_WINDOW(root), title.c_str(), facts.c_str()));
    const auto confirm = "Confirm and send " + inQuotes(look.reviewed.answer);
    adw_message_dialog_add_responses(secondLook_, "back", "Back", "confirm", confirm.c_str(), nullptr);
    adw_message_dialog_set_response_appearance(secondLook_, "confirm", ADW_RESPONSE_DESTRUCTIVE);
    adw_message_dialog_set_default_response(secondLook_, "back");
    adw_message_dialog_set_close_response(secondLook_, "back");
    g_signal_connect(secondLook_, "response",
        G_CALLBACK(+[](AdwMessageDialog*, const char* response, ContentPane* self) {
            self->secondLook_ = nullptr;
            if (std::string_view(response) == "confirm") {
                self->model_->confirmReview();
            } else {
                self->model_->giveUpReview();
            }
        }),
        this);
    gtk_window_present(GTK_WINDOW(secondLook_));
}

void ContentPane::show(const AppState& state) {
    pageStands_ = pageStands_ && state.connection.state == Connection::State::ready;
    showSecondLook(state);
    switch (state.connection.state) {
    case Connection::State::starting:
        pressed_.set_text(fmt::format("{}", fmt::join(pressedLines(state, {}, clock_->now()), "\n")));
        pressed_.set_visible(!pressed_.get_text().empty());
        silent_.set_visible(loginItemIsSilent(state));
        startHere_.set_visible(loginItemIsSilent(state));
        if (loginItemIsSilent(state))
            silent_.set_text(*state.supervisorStatus->lastError);
        set_visible_child("starting");
        break;
    case Connection::State::failed: {
        // The description is markup to the widget, and the message is anything.
        adw_status_page_set_description(failed_, Glib::Markup::escape_text(state.connection.message).c_str());
        set_visible_child("failed");
        break;
    }
    case Connection::State::ready:
        set_visible_child(readyPage(state));
        back_.set_visible(state.nativeInbox && state.reviewed);
        native_.show();
        lists_.show();
        break;
    }
}

} // namespace kelvadrome
