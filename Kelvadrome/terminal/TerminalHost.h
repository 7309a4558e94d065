#pragma once

#include "Kelvadrome/model/Notifier.h"
#include "Kelvadrome/model/RunningApps.h"
#include "Kelvadrome/model/Screen.h"
#include "Kelvadrome/terminal/TerminalScreen.h"
#include "Kelvadrome/terminal/panel/PanelBoard.h"
#include "Kelvadrome/terminal/panel/TerminalPage.h"

#include <deque>
#include <functional>
#include <memory>
#include <string>

namespace kelvadrome {

/// What a terminal can do of what the model asks of a screen: it has one window, which is always there.
class TerminalHost final : public Screen {
public:
    struct Dependencies {
        TerminalScreen* screen = nullptr; // outlives the host
        std::shared_ptr<PanelBoard> board;
        std::shared_ptr<TerminalPage> page;
        std::function<void(std::string url)> openURL; // empty where no browser can be opened
    };

    explicit TerminalHost(Dependencies dependencies) : with_(std::move(dependencies)) {}

    void activate() override {}
    void openMainWindow() override {}
    void orderOutMain() override {}
    bool hasMenuBarItem() const override { return true; } // the panel itself
    void setBadge(std::optional<std::string> label) override;
    void setAppearance(Appearance) override {}
    void presentOnboarding(
        PageSession::Credentials credentials, bool firstRun, std::string theme, bool quietly) override;
    void renewOnboarding(PageSession::Credentials) override {}
    bool raiseOnboarding() override { return false; }
    void closeOnboarding() override { with_.page->dismiss(); }
    void updateAgentStrip(std::optional<AgentStrip>) override {}
    void openCommandBar(std::optional<std::string> text) override {
        if (onCommandBar)
            onCommandBar(text.value_or(std::string()));
    }
    void revealFile(std::string path) override { with_.board->setNote("The file is " + path); }
    void copyText(std::string text) override { with_.screen->copy(text); }
    void openURL(std::string url) override;
    void activateApplication(std::string bundleId) override;
    Task<> criticalAlert(std::string title, std::string text, std::string button) override;

    std::function<void(const std::string& text)> onCommandBar; // set once the panel is there

    /// A question with two answers; true for `yes`.
    Task<bool> confirm(std::string title, std::string text, std::string yes, std::string no);

    /// The user has answered the alert that shows; `yes` is the only answer of one that isn't a question.
    void answer(bool yes);
    /// Answers `yes` to every question: nobody is there any more to answer.
    void agreeToQuestions();

private:
    struct Waiting {
        PanelAlert alert;
        Completion<bool> answered;
    };

    Task<bool> show(PanelAlert alert);
    void showFirst();

    Dependencies with_;
    std::deque<Waiting> alerts_; // the first one shows
};

/// Notifications where there is no desktop: the terminal's bell, which most terminals turn into a mark on
/// their window or tab.
class TerminalBell final : public NotificationCenter {
public:
    explicit TerminalBell(TerminalScreen& screen) : screen_(screen) {}

    bool acceptsThisProcess() override { return true; }
    void setOpened(std::function<void()>) override {} // nobody presses on a bell
    void registerCategory(Category) override {}
    Task<bool> requestAuthorization() override { co_return true; }
    Task<> add(NotificationRequest) override {
        screen_.bell();
        co_return;
    }

private:
    TerminalScreen& screen_;
};

/// Without a desktop no other application shows anything.
class NoApps final : public RunningApps {
public:
    bool isRunning(const std::string&) override { return false; }
    void activate(const std::string&) override {}
};

} // namespace kelvadrome
