#include "Kelvadrome/gtk/DesktopScreen.h"

#include "Kelvadrome/gtk/parts/Theme.h"
#include "Kelvadrome/gtk/web/QuietWindow.h"
#include "KelvadromeKit/support/Log.h"

#include <giomm/appinfo.h>

#include <adwaita.h>
#include <charconv>
#include <gdkmm/clipboard.h>
#include <gdkmm/display.h>

namespace kelvadrome {

namespace {

/// Resumes with the id of the pressed answer; a closed dialog gives the last one.
Task<std::string> choose(AdwMessageDialog* dialog) {
    const auto ask = [dialog](Completion<std::string> chosen) {
        auto kept = std::make_unique<Completion<std::string>>(chosen);
        g_signal_connect_data(
            dialog, "response", G_CALLBACK(+[](AdwMessageDialog*, const char* id, gpointer to) {
                (*static_cast<Completion<std::string>*>(to))(std::string(id));
            }),
            kept.release(),
            [](gpointer to, GClosure*) {
                std::unique_ptr<Completion<std::string>>(static_cast<Completion<std::string>*>(to));
            },
            GConnectFlags(0));
        gtk_window_present(GTK_WINDOW(dialog));
        return std::function<void()>([chosen] { chosen(std::string()); });
    };
    co_return co_await suspendUntil<std::string>(ask);
}

} // namespace

void DesktopScreen::attach(MainWindow* main, AgentStripWindow* strip, Setup setup) {
    main_ = main;
    strip_ = strip;
    setup_ = std::move(setup);
}

/// A press on a notification or on the strip must not come to nothing because the window was closed.
void DesktopScreen::activate() {
    const bool main = main_ && main_->get_visible();
    if ((setupInFront_ || !main) && raiseOnboarding())
        return;
    if (main_)
        main_->present();
}

void DesktopScreen::openMainWindow() {
    setupInFront_ = false;
    if (!main_ || main_->get_visible())
        return;
    if (desktop_.quietWindows && desktop_.quietWindows()) {
        showWithoutFocus(*main_);
    } else {
        main_->set_visible(true);
    }
}

void DesktopScreen::orderOutMain() {
    if (main_)
        main_->set_visible(false);
}

void DesktopScreen::setBadge(std::optional<std::string> label) {
    std::int64_t count = 0;
    if (label)
        std::from_chars(label->data(), label->data() + label->size(), count);
    if (desktop_.setBadge)
        desktop_.setBadge(count > 0 ? std::optional(count) : std::nullopt);
}

void DesktopScreen::setAppearance(Appearance appearance) {
    Theme::apply(appearance);
}

void DesktopScreen::presentOnboarding(
    PageSession::Credentials credentials, bool firstRun, std::string theme, bool quietly) {
    setupInFront_ = true;
    if (setup_.present)
        setup_.present(std::move(credentials), firstRun, std::move(theme), quietly);
}

void DesktopScreen::renewOnboarding(PageSession::Credentials credentials) {
    if (setup_.renew)
        setup_.renew(std::move(credentials));
}

bool DesktopScreen::raiseOnboarding() {
    const bool raised = setup_.raise && setup_.raise();
    setupInFront_ = setupInFront_ || raised;
    return raised;
}

void DesktopScreen::closeOnboarding() {
    if (setup_.close)
        setup_.close();
}

void DesktopScreen::updateAgentStrip(std::optional<AgentStrip> strip) {
    if (strip_)
        strip_->update(strip);
}

void DesktopScreen::revealFile(std::string path) {
    if (desktop_.revealFile)
        desktop_.revealFile(std::move(path));
}

void DesktopScreen::copyText(std::string text) {
    Gdk::Display::get_default()->get_clipboard()->set_text(text);
}

void DesktopScreen::openURL(std::string url) {
    // Nothing here waits for the browser.
    Gio::AppInfo::launch_default_for_uri_async(url, [url](Glib::RefPtr<Gio::AsyncResult>& result) {
        try {
            Gio::AppInfo::launch_default_for_uri_finish(result);
        } catch (const Glib::Error& error) {
            logLine(std::string("no program opened a link: ") + error.what());
        }
    });
}

void DesktopScreen::activateApplication(std::string bundleId) {
    if (desktop_.apps)
        desktop_.apps->activate(bundleId);
}

Task<> DesktopScreen::criticalAlert(std::string title, std::string text, std::string button) {
    auto* const dialog = ADW_MESSAGE_DIALOG(
        adw_message_dialog_new(main_ ? GTK_WINDOW(main_->gobj()) : nullptr, title.c_str(), text.c_str()));
    adw_message_dialog_add_response(dialog, "ok", button.c_str());
    co_await choose(dialog);
}

Task<bool> DesktopScreen::confirm(
    std::string title, std::string text, std::string yes, std::string no, Gtk::Window* over) {
    if (!over)
        over = main_;
    auto* const dialog = ADW_MESSAGE_DIALOG(
        adw_message_dialog_new(over ? over->gobj() : nullptr, title.c_str(), text.c_str()));
    adw_message_dialog_add_responses(dialog, "yes", yes.c_str(), "no", no.c_str(), nullptr);
    adw_message_dialog_set_response_appearance(dialog, "yes", ADW_RESPONSE_DESTRUCTIVE);
    adw_message_dialog_set_default_response(dialog, "no");
    adw_message_dialog_set_close_response(dialog, "no");
    const auto answer = co_await choose(dialog);
    co_return answer == "yes";
}

} // namespace kelvadrome
