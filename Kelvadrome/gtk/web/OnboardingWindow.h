#pragma once

#include "Kelvadrome/gtk/web/WebPane.h"
#include "Kelvadrome/model/AppModel.h"
#include "KelvadromeKit/onboarding/OnboardingCoordinator.h"

#include <adwaita.h>
#include <functional>
#include <gtkmm/window.h>
#include <memory>
#include <string>

namespace kelvadrome {

/// The setup page in a window of its own. Made once and kept: closing hides it, and `present` loads the page
/// anew. GLib's main loop only.
class OnboardingWindow final : public OnboardingHost, public std::enable_shared_from_this<OnboardingWindow> {
public:
    struct Dependencies {
        Executor executor; // the main one
        std::shared_ptr<Clock> clock;
        std::function<void(std::string url)> openURL; // with the user's browser
        DaemonClient client;
        std::weak_ptr<AppModel> model;
        std::string home;                      // where the folder picker begins
        std::shared_ptr<FolderPicking> picker; // the system's when null
        PageRoute route = {};
    };

    static std::shared_ptr<OnboardingWindow> make(Dependencies dependencies);
    ~OnboardingWindow() override;

    /// Loads the page and brings the window forward. `theme` is the page's colour theme.
    void present(PageSession::Credentials credentials, bool firstRun, std::string theme);
    /// The same, leaving the focus where it is.
    void presentQuietly(PageSession::Credentials credentials, bool firstRun, std::string theme);
    /// Reloads the window, if it is visible, when the session isn't the one that it has.
    void renew(PageSession::Credentials credentials);
    /// For the page that shows, too.
    void setTheme(const std::string& theme);
    void raise();
    /// What the user's close does: it asks first while setup isn't finished.
    void requestClose();

    bool visible() const { return window_->get_visible(); }
    Gtk::Window& window() { return *window_; }
    WebPane& web() { return *web_; }
    const OnboardingCoordinator& coordinator() const { return *coordinator_; }
    std::function<void()> onClosed;

    Task<bool> evaluate(std::string script) override;
    void reloadPage() override;
    /// Nothing when it is closed.
    void closeOnboardingWindow() override;
    void openMainWindowOnInbox() override;

private:
    explicit OnboardingWindow(Dependencies dependencies);
    void makeWindow();
    void makeCoordinator();
    void prepare(PageSession::Credentials credentials, bool firstRun, std::string theme);
    void load(PageSession::Credentials credentials);
    void showError();
    void watchSheet(AdwMessageDialog* sheet);

    static Task<> handle(std::weak_ptr<OnboardingWindow> weak, std::string type, std::string body);
    static Task<> closeIfMay(std::weak_ptr<OnboardingWindow> weak);
    static Task<bool> ask(std::weak_ptr<OnboardingWindow> weak, ClosePrompt prompt);

    Dependencies with_;
    TaskBag tasks_;
    std::shared_ptr<WebPane> web_;
    std::shared_ptr<Gtk::Window> window_; // after the pane: it goes first
    std::shared_ptr<OnboardingCoordinator> coordinator_;
    AdwToastOverlay* toasts_ = nullptr; // the window's
    AdwMessageDialog* sheet_ = nullptr; // while it is up
    bool firstRun_ = false;
};

} // namespace kelvadrome
