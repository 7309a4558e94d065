#pragma once

#include "Kelvadrome/gtk/strip/StripWindow.h"
#include "Kelvadrome/gtk/window/MainWindow.h"
#include "Kelvadrome/model/RunningApps.h"
#include "Kelvadrome/model/Screen.h"

#include <functional>
#include <memory>
#include <string>

namespace kelvadrome {

/// What the model asks of a desktop. The windows are handed over when they have been made, which is after the
/// model; what is asked before then does nothing.
class DesktopScreen final : public Screen {
public:
    /// The window of the setup page.
    struct Setup {
        std::function<void(PageSession::Credentials, bool firstRun, std::string theme, bool quietly)> present;
        std::function<void(PageSession::Credentials)> renew;
        std::function<bool()> raise;
        std::function<void()> close;
    };
    struct Desktop {
        std::function<void(std::optional<std::int64_t>)> setBadge;
        std::function<void(std::string path)> revealFile;
        std::shared_ptr<RunningApps> apps;
        std::function<bool()> quietWindows; // asked when the main window opens
        std::function<bool()> trayHosted;   // whether a tray shows our item
        std::function<void(std::optional<std::string> text)> openBar;
    };

    explicit DesktopScreen(Desktop desktop) : desktop_(std::move(desktop)) {}
    /// The windows outlive the calls; `forget` ends that.
    void attach(MainWindow* main, AgentStripWindow* strip, Setup setup);
    void forget() { attach(nullptr, nullptr, {}); }

    void activate() override;
    void openMainWindow() override;
    void orderOutMain() override;
    bool hasMenuBarItem() const override { return desktop_.trayHosted && desktop_.trayHosted(); }
    void setBadge(std::optional<std::string> label) override;
    void setAppearance(Appearance appearance) override;
    void presentOnboarding(
        PageSession::Credentials credentials, bool firstRun, std::string theme, bool quietly) override;
    void renewOnboarding(PageSession::Credentials credentials) override;
    bool raiseOnboarding() override;
    void closeOnboarding() override;
    void updateAgentStrip(std::optional<AgentStrip> strip) override;
    void openCommandBar(std::optional<std::string> text) override { desktop_.openBar(std::move(text)); }
    void revealFile(std::string path) override;
    void copyText(std::string text) override;
    void openURL(std::string url) override;
    void activateApplication(std::string bundleId) override;
    Task<> criticalAlert(std::string title, std::string text, std::string button) override;

    /// A message with two answers over a window, the main one unless another is given; true for the first,
    /// which is the one that destroys.
    Task<bool> confirm(
        std::string title, std::string text, std::string yes, std::string no, Gtk::Window* over = nullptr);

private:
    Desktop desktop_;
    MainWindow* main_ = nullptr;
    AgentStripWindow* strip_ = nullptr;
    Setup setup_;
    bool setupInFront_ = false; // of the two windows the one that was opened or raised last
};

} // namespace kelvadrome
