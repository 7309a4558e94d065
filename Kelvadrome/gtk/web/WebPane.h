#pragma once

#include "Kelvadrome/gtk/web/PageBridge.h"
#include "Kelvadrome/gtk/web/PageStack.h"
#include "Kelvadrome/model/PageLoad.h"
#include "Kelvadrome/model/WebController.h"
#include "KelvadromeKit/page/PageCall.h"
#include "KelvadromeKit/support/Clock.h"
#include "KelvadromeKit/support/TaskBag.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <webkit/webkit.h>

namespace kelvadrome {

/// How a page is fetched.
struct PageRoute {
    /// Where WebKit's own connections go, which can't be looked at from here; straight to the daemon without
    /// one.
    std::string proxy = {};
    /// Why nothing may be fetched from a port, if so; asked before each load. Without it every port will do.
    std::function<Task<std::optional<std::string>>(std::int64_t port)> admit = {};
};

/// The daemon's page in a web view, or words in its place. `PageLoad` decides what happens when; the pane
/// tells it what WebKit does and does what it says. On GLib's main loop only.
class WebPane final : public WebController, public std::enable_shared_from_this<WebPane> {
public:
    struct Dependencies {
        Executor executor; // the main one
        std::shared_ptr<Clock> clock;
        std::function<void(std::string url)> openURL; // with the user's browser
        PageRoute route = {};
    };
    /// Chooses WebKit's renderer for machines without a GPU, unless the user chose. It sets an environment
    /// variable, so it is called before there are other threads.
    static void prepareProcess();

    static std::shared_ptr<WebPane> make(Dependencies dependencies);
    ~WebPane() override;

    /// What a window shows: the page, or the words in its place.
    Gtk::Widget& widget() { return stack_.widget(); }
    /// `changed` is called when `trouble` or `stands` has.
    void setTroubleChanged(std::function<void()> changed) { stack_.onChange = std::move(changed); }
    /// What the page tells the shell. Messages from frames inside it and from other origins never get here.
    PageBridge::OnMessage onMessage;

    void load(PageSession::Credentials credentials, NavSection section, ScopeFilter scope) override;
    /// The same for one of the page's addresses.
    void load(PageSession::Credentials credentials, std::string url);
    void navigate(std::string path, ScopeFilter scope, std::optional<std::string> focus) override;
    void search(std::string query, ScopeFilter scope) override;
    void setScope(ScopeFilter scope, std::string path) override;
    void callShell(std::string expression, std::optional<std::string> fallback) override;
    void runScript(std::string script) override;
    /// Loads the page that is shown, or the one that failed.
    void reload() override;

    /// Whether a script's result is the boolean true; false when it fails.
    Task<bool> evaluate(std::string script);
    /// A page has finished loading since the last `load`, and still lives.
    bool loaded() const { return load_.loaded(); }
    /// The page of this session has said that its script stands.
    bool stands() const { return stands_; }
    /// The words that stand in the page's place, if they do.
    const std::optional<std::string>& trouble() const { return stack_.trouble(); }
    WebKitWebView* view() const { return view_.get(); }

private:
    explicit WebPane(Dependencies dependencies);

    // What `PageLoad` is told, and what it says.
    void tell(const PageLoad::Event& event, double earliest = 0); // the event's time is at least `earliest`
    void wakeWhenDue();
    static Task<> wake(std::weak_ptr<WebPane> weak, double at);
    void carryOut(const PageAction::Prepare& action);
    void carryOut(const PageAction::Request& action);
    void carryOut(const PageAction::Reload& action);
    void carryOut(const PageAction::StopLoading& action);
    void carryOut(const PageAction::EndProcess& action);
    void carryOut(const PageAction::ShowPage& action);
    void carryOut(const PageAction::ShowTrouble& action);
    void carryOut(const PageAction::PageLoaded& action);
    static Task<> prepare(std::weak_ptr<WebPane> weak, Task<PageEvent::Prepared> preparing);

    // Calls into the page.
    void callPage(const PageCall& call, ScopeFilter scope);
    static Task<> callOrLoad(
        std::weak_ptr<WebPane> weak, std::string script, std::optional<std::string> fallback);
    void tellTheme();
    void tellContrast();

    // What WebKit and the desktop tell.
    void connectSignals();
    void followColours();
    void loadChanged(WebKitLoadEvent event);
    void watchDocument();
    void forgetDocument();
    bool decide(WebKitPolicyDecision* decision, WebKitPolicyDecisionType type);
    bool refuseFrame(WebKitResponsePolicyDecision* decision);
    bool refuseBrokenReply(WebKitResponsePolicyDecision* decision);
    void receive(const std::string& url, const std::string& json);

    Dependencies with_;
    TaskBag tasks_;
    std::shared_ptr<WebKitWebView> view_;
    PageBridge bridge_;
    PageStack stack_;
    PageLoad load_;

    std::shared_ptr<WebKitWebResource> document_; // the one that is shown, until its load begins anew
    std::string setCookieHeader_;                 // of the session in use
    std::int64_t port_ = 0;                       // the daemon's, as the session says
    bool stands_ = false;
    TaskHandle preparing_;
    TaskHandle waking_;
    std::optional<double> wakesAt_; // uptime, while `waking_` sleeps
};

} // namespace kelvadrome
