#pragma once

#include "Kelvadrome/model/WebController.h"
#include "Kelvadrome/terminal/panel/PanelBoard.h"
#include "KelvadromeKit/daemon/DaemonEnvironment.h"
#include "KelvadromeKit/support/Clock.h"
#include "KelvadromeKit/support/TaskBag.h"

#include <functional>
#include <memory>
#include <string>

namespace kelvadrome {

/// The daemon's page for a terminal: a one-time login link on the panel, which the user opens in a browser. A
/// link shows for as long as it is good, is replaced by the next, and is never logged.
class TerminalPage final : public WebController, public std::enable_shared_from_this<TerminalPage> {
public:
    struct Dependencies {
        Executor executor; // the main one
        std::shared_ptr<Clock> clock;
        std::shared_ptr<PanelBoard> board;
        PageSession::Mint mint;
        /// Has the browser open a login link, without telling it to anybody else; what it gives back is kept
        /// for as long as the link is good. Empty where no browser can be opened.
        std::function<std::shared_ptr<void>(std::string link)> openLink;
        std::string tunnelTo; // how `ssh` reaches this machine from the user's; empty when that is this one
    };

    explicit TerminalPage(Dependencies dependencies);

    void load(PageSession::Credentials credentials, NavSection section, ScopeFilter scope) override;
    void navigate(std::string path, ScopeFilter scope, std::optional<std::string> focus) override;
    void search(std::string query, ScopeFilter scope) override;
    void setScope(ScopeFilter, std::string) override {}
    void callShell(std::string expression, std::optional<std::string> fallback) override;
    void runScript(std::string) override {}
    void reload() override {}

    /// A link to any page of the daemon's; `next` is a path, which may have a query.
    void show(std::string title, std::string next);
    /// Takes the link off the panel.
    void dismiss();
    /// While quiet, what the model opens makes no link.
    void setQuiet(bool quiet) { quiet_ = quiet; }
    void close() { tasks_.close(); }

    /// What `ssh` is to be told to come here again, from the variables of a session that came by it; empty in
    /// any other.
    static std::string tunnelTarget(const EnvironmentMap& environment);
    /// The login link with what tells the daemon where to go after it. Throws PageSession::Failure for one
    /// that doesn't point at this machine's loopback address.
    static std::string browserLink(const std::string& login, const std::string& next);

private:
    static Task<> mintAndShow(std::shared_ptr<TerminalPage> self, std::string title, std::string next);

    Dependencies with_;
    TaskBag tasks_;
    TaskHandle showing_;
    bool quiet_ = false;
};

} // namespace kelvadrome
