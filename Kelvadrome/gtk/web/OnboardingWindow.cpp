#include "Kelvadrome/gtk/web/OnboardingWindow.h"

#include "Kelvadrome/gtk/web/QuietWindow.h"
#include "Kelvadrome/gtk/web/SystemFolderPicker.h"
#include "Kelvadrome/model/NativeActions.h"
#include "KelvadromeKit/onboarding/FirstRun.h"

#include <gtkmm/headerbar.h>
#include <gtkmm/label.h>

namespace kelvadrome {

namespace {

constexpr int width = 880, height = 720, minimumWidth = 720, minimumHeight = 600;
constexpr const char* confirm = "confirm";
// This desktop has no menu bar.
constexpr const char* finishLaterDetail =
    "Finish Setup stands in the window's menu and in the tray until you are done.";
constexpr double folderTimeout = 10; // seconds

BridgeMessage::Message parsed(const std::string& type, const std::string& body) {
    return readJSON(body, [&](const JSONValue& root) { return BridgeMessage::parse(type, root.object()); });
}

Task<> tellFolder(DaemonClient client, std::string path) {
    boost::json::object body{{"path", path}};
    auto call = client.post<AnyDecodable>("/v1/onboarding/folder", std::move(body), folderTimeout);
    co_await std::move(call);
}

AdwMessageDialog* makeSheet(Gtk::Window& window, const ClosePrompt& prompt) {
    auto* sheet =
        ADW_MESSAGE_DIALOG(adw_message_dialog_new(window.gobj(), prompt.title.c_str(), finishLaterDetail));
    // From left to right: the one that Return presses stands last.
    adw_message_dialog_add_responses(
        sheet, "cancel", prompt.cancel.c_str(), confirm, prompt.confirm.c_str(), nullptr);
    adw_message_dialog_set_default_response(sheet, confirm);
    adw_message_dialog_set_close_response(sheet, "cancel");
    return sheet;
}

void connectResponse(AdwMessageDialog* sheet, const Completion<bool>& done) {
    const auto answered = +[](AdwMessageDialog*, const char* response, Completion<bool>* kept) {
        const auto finish = *kept;
        finish(std::string_view(response) == confirm);
    };
    const auto forget = +[](gpointer kept, GClosure*) {
        std::default_delete<Completion<bool>>()(static_cast<Completion<bool>*>(kept));
    };
    g_signal_connect_data(sheet, "response", G_CALLBACK(answered),
        std::make_unique<Completion<bool>>(done).release(), forget, GConnectFlags(0));
}

} // namespace

std::shared_ptr<OnboardingWindow> OnboardingWindow::make(Dependencies dependencies) {
    std::shared_ptr<OnboardingWindow> made(new OnboardingWindow(std::move(dependencies)));
    made->makeCoordinator();
    return made;
}

OnboardingWindow::OnboardingWindow(Dependencies dependencies)
    : with_(std::move(dependencies)), tasks_(with_.executor),
      web_(WebPane::make({with_.executor, with_.clock, with_.openURL, with_.route})),
      window_(std::make_shared<Gtk::Window>()) {
    makeWindow();
    web_->onMessage = [this](const std::string& type, const JSONObject& body) {
        tasks_.launch("setup message", handle(weak_from_this(), type, body.text()));
    };
}

OnboardingWindow::~OnboardingWindow() {
    tasks_.close();
    web_->onMessage = nullptr;
    if (sheet_)
        gtk_window_destroy(GTK_WINDOW(std::exchange(sheet_, nullptr)));
}

void OnboardingWindow::makeWindow() {
    window_->set_name("onboarding");
    window_->set_title("Set up kelvadrome");
    auto* bar = Gtk::make_managed<Gtk::HeaderBar>();
    bar->add_css_class("flat");
    bar->set_title_widget(*Gtk::make_managed<Gtk::Label>()); // the page has its own title
    window_->set_titlebar(*bar);
    int least = 0, barHeight = 0, baseline = 0;
    bar->measure(Gtk::Orientation::VERTICAL, -1, least, barHeight, baseline, baseline);
    window_->set_default_size(width, height + barHeight);

    toasts_ = ADW_TOAST_OVERLAY(adw_toast_overlay_new());
    adw_toast_overlay_set_child(toasts_, web_->widget().gobj());
    auto* overlay = Glib::wrap(GTK_WIDGET(toasts_));
    overlay->set_size_request(minimumWidth, minimumHeight);
    window_->set_child(*overlay);
    window_->signal_close_request().connect(
        [this] {
            requestClose();
            return true;
        },
        false);
}

void OnboardingWindow::makeCoordinator() {
    auto picker = with_.picker ? with_.picker : std::make_shared<SystemFolderPicker>(window_);
    auto setFolder = [client = with_.client](
                         std::string path) { return tellFolder(client, std::move(path)); };
    coordinator_ = std::make_shared<OnboardingCoordinator>(
        weak_from_this(), std::move(picker), std::move(setFolder), with_.home);
}

void OnboardingWindow::present(PageSession::Credentials credentials, bool firstRun, std::string theme) {
    prepare(std::move(credentials), firstRun, std::move(theme));
    raise();
}

void OnboardingWindow::presentQuietly(
    PageSession::Credentials credentials, bool firstRun, std::string theme) {
    prepare(std::move(credentials), firstRun, std::move(theme));
    if (!visible())
        showWithoutFocus(*window_);
}

void OnboardingWindow::prepare(PageSession::Credentials credentials, bool firstRun, std::string theme) {
    if (!visible())
        makeCoordinator(); // what an earlier page finished, this one has not
    firstRun_ = firstRun;
    web_->theme = std::move(theme);
    load(std::move(credentials));
}

void OnboardingWindow::load(PageSession::Credentials credentials) {
    if (auto url = FirstRun::url(credentials.base, firstRun_))
        web_->load(std::move(credentials), std::move(*url));
}

void OnboardingWindow::renew(PageSession::Credentials credentials) {
    if (visible() && web_->cookieValue != credentials.cookieValue)
        load(std::move(credentials));
}

void OnboardingWindow::setTheme(const std::string& theme) {
    if (std::exchange(web_->theme, theme) != theme)
        web_->runScript(setThemeScript(theme));
}

void OnboardingWindow::raise() {
    window_->present();
}

// What the page says

Task<> OnboardingWindow::handle(std::weak_ptr<OnboardingWindow> weak, std::string type, std::string body) {
    auto self = weak.lock();
    if (!self)
        co_return;
    auto dealing = self->coordinator_->handle(parsed(type, body));
    self.reset();
    const bool dealt = co_await std::move(dealing);
    self = weak.lock();
    if (!self)
        co_return;
    if (type != "action")
        co_return;
    if (dealt) {
        self->showError();
    } else if (const auto model = self->with_.model.lock()) {
        readJSON(body, [&](const JSONValue& root) {
            NativeActions::handle(type, root.object(), *model);
            return 0;
        });
    }
}

void OnboardingWindow::showError() {
    if (const auto& words = coordinator_->lastError())
        adw_toast_overlay_add_toast(toasts_, adw_toast_new(words->c_str()));
}

Task<bool> OnboardingWindow::evaluate(std::string script) {
    return web_->evaluate(std::move(script));
}

void OnboardingWindow::reloadPage() {
    web_->reload();
}

void OnboardingWindow::openMainWindowOnInbox() {
    if (const auto model = with_.model.lock())
        model->onboardingFinished();
}

// Closing

void OnboardingWindow::requestClose() {
    tasks_.launch("setup close", closeIfMay(weak_from_this()));
}

Task<> OnboardingWindow::closeIfMay(std::weak_ptr<OnboardingWindow> weak) {
    auto self = weak.lock();
    if (!self)
        co_return;
    auto asking = self->coordinator_->mayClose([weak](ClosePrompt prompt) { return ask(weak, prompt); });
    self.reset();
    const bool may = co_await std::move(asking);
    self = weak.lock();
    if (may && self)
        self->closeOnboardingWindow();
}

Task<bool> OnboardingWindow::ask(std::weak_ptr<OnboardingWindow> weak, ClosePrompt prompt) {
    auto self = weak.lock();
    if (!self)
        co_return false;
    auto* sheet = makeSheet(*self->window_, prompt);
    self->watchSheet(sheet);
    self.reset();
    auto start = [sheet](Completion<bool> done) {
        connectResponse(sheet, done);
        gtk_window_present(GTK_WINDOW(sheet));
        return std::function<void()>([done] { done(false); });
    };
    co_return co_await suspendUntil<bool>(std::move(start));
}

void OnboardingWindow::watchSheet(AdwMessageDialog* sheet) {
    sheet_ = sheet;
    g_signal_connect(sheet, "destroy",
        G_CALLBACK(+[](AdwMessageDialog*, OnboardingWindow* self) { self->sheet_ = nullptr; }), this);
}

void OnboardingWindow::closeOnboardingWindow() {
    if (!visible())
        return;
    if (sheet_)
        gtk_window_close(GTK_WINDOW(sheet_)); // which answers "cancel"
    window_->set_visible(false);
    if (onClosed)
        onClosed();
}

} // namespace kelvadrome
