#pragma once

#include "KelvadromeKit/attention/AgentStrip.h"
#include "KelvadromeKit/page/PageSession.h"
#include "KelvadromeKit/support/Task.h"

#include <optional>
#include <string>

namespace kelvadrome {

enum class Appearance { system, light, dark };

/// What the model needs of a front end. Calls come on the main executor, return at once and never throw; a
/// front end without the thing asked for does nothing.
class Screen {
public:
    virtual ~Screen() = default;

    /// Brings the application to the front. The calls that open windows don't do that by themselves.
    virtual void activate() = 0;
    /// Opens the main window, or brings the open one forward among the application's own.
    virtual void openMainWindow() = 0;
    /// Hides the main window, if it is open.
    virtual void orderOutMain() = 0;
    /// Whether the application can be reached without a window. Where it can't, one always comes.
    virtual bool hasMenuBarItem() const = 0;
    /// The number on the application's icon; absent clears it.
    virtual void setBadge(std::optional<std::string> label) = 0;
    virtual void setAppearance(Appearance appearance) = 0;

    /// Shows the setup page in its window, made at the first call. `quietly` leaves the focus where it is.
    virtual void presentOnboarding(
        PageSession::Credentials credentials, bool firstRun, std::string theme, bool quietly) = 0;
    /// Reloads the setup window, if it is visible, with another session.
    virtual void renewOnboarding(PageSession::Credentials credentials) = 0;
    /// Brings the setup window forward; false when none is open.
    virtual bool raiseOnboarding() = 0;
    /// Closes the setup window without asking, if it is visible.
    virtual void closeOnboarding() = 0;

    /// The floating strip of lamps; absent takes it off the screen.
    virtual void updateAgentStrip(std::optional<AgentStrip> strip) = 0;
    /// The command bar, with `text` in it when given.
    virtual void openCommandBar(std::optional<std::string> text) = 0;

    /// Selects a file, one that exists, in the file manager.
    virtual void revealFile(std::string path) = 0;
    /// Replaces what the clipboard holds.
    virtual void copyText(std::string text) = 0;
    /// Opens a URL with the program that the user set for it.
    virtual void openURL(std::string url) = 0;
    /// Brings the first running instance of another application forward; nothing when it doesn't run.
    virtual void activateApplication(std::string bundleId) = 0;

    /// A critical message with one button; resumes when the user has dismissed it.
    virtual Task<> criticalAlert(std::string title, std::string text, std::string button) = 0;
};

} // namespace kelvadrome
